#include "agent/plan/plan_json.h"

#include <nlohmann/json.hpp>

#include "agent/plan/records_json.h"

namespace agent {

namespace {

std::string dumped(const nlohmann::json& value) {
  // In ASCII: it may be shown on a terminal, and names of a server must not drive that.
  return value.dump(2, ' ', true, nlohmann::json::error_handler_t::replace) + "\n";
}

nlohmann::json withoutConfig(const Measurement& measurement) {
  nlohmann::json value = toJson(measurement);
  value.erase("config");
  return value;
}

const char* nameOf(Severity severity) {
  if (severity == Severity::kBlock) return "block";
  return severity == Severity::kWarning ? "warning" : "note";
}

const char* nameOf(Verdict verdict) {
  if (verdict == Verdict::kBlocked) return "blocked";
  return verdict == Verdict::kReady ? "ready" : "warnings";
}

}  // namespace

std::string measurementJson(const std::string& source, const Measurement& measurement,
                            const host::ShellVars& config) {
  return dumped(
      {{"source", source}, {"measurement", withoutConfig(measurement)}, {"configuration", config}});
}

std::string planJson(const PlanFacts& facts, const Plan& plan) {
  nlohmann::json excludes = nlohmann::json::array();
  for (const auto& exclude : plan.excludes) {
    excludes.push_back({{"path", exclude.path}, {"reason", exclude.reason}});
  }
  nlohmann::json missing = nlohmann::json::array();
  for (const auto& mount : plan.missingMounts) {
    missing.push_back(
        {{"mountPoint", mount.mountPoint}, {"type", mount.type}, {"device", mount.device}});
  }
  nlohmann::json limits = nlohmann::json::array();
  for (const auto& limit : plan.limits) {
    limits.push_back({{"name", limit.name},
                      {"soft", limit.soft},
                      {"hard", limit.hard},
                      {"measured", limit.measured},
                      {"unit", limit.unit}});
  }
  nlohmann::json findings = nlohmann::json::array();
  for (const auto& finding : plan.findings) {
    findings.push_back({{"severity", nameOf(finding.severity)}, {"text", finding.text}});
  }
  const nlohmann::json survey = toJson(facts.survey);
  return dumped(
      {{"source", facts.source},
       {"ctid", facts.ctid},
       {"copy",
        {{"bytes", plan.bytes},
         {"files", plan.files},
         {"counted", plan.counted},
         {"fileSystems", survey["fileSystems"]}}},
       {"excludes", excludes},
       {"missingMounts", missing},
       {"node",
        {{"privateArea", facts.node.privateArea},
         {"freeBytes", facts.node.freeBytes},
         {"freeInodes", facts.node.freeInodes},
         {"storage", facts.node.storage},
         {"ids", facts.node.ids}}},
       {"limits", limits},
       {"configuration", facts.config},
       {"addresses", plan.addresses},
       {"distribution", {{"name", plan.distribution}, {"script", facts.node.distributionScript}}},
       {"services", {{"stop", facts.services}, {"running", facts.survey.runningServices}}},
       {"measurement", withoutConfig(facts.measurement)},
       {"survey", survey},
       {"findings", findings},
       {"verdict", nameOf(plan.verdict)}});
}

}  // namespace agent
