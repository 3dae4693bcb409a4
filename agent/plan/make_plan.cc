#include "agent/plan/make_plan.h"

#include <algorithm>

#include "agent/plan/checks.h"
#include "agent/plan/disk_limits.h"
#include "host/interfaces.h"
#include "host/text.h"

namespace agent {

namespace {

// The addresses of the interfaces, or those of the old variable without any.
std::vector<std::string> addressesOf(const host::ShellVars& config) {
  host::Container container;
  container.vars = config;
  std::vector<std::string> addresses;
  for (const host::Interface& interface : host::interfacesOf(container)) {
    addresses.insert(addresses.end(), interface.addresses.begin(), interface.addresses.end());
  }
  if (!addresses.empty()) return addresses;
  const std::string old = host::valueOf(config, "IP_ADDRESS");
  for (const std::string_view address : host::splitWords(old)) addresses.emplace_back(address);
  return addresses;
}

}  // namespace

Plan makePlan(const PlanFacts& facts) {
  Plan plan;
  plan.excludes = plannedExcludes(facts);
  plan.limits = plannedLimits(facts.measurement, facts.config);
  plan.distribution = host::valueOf(facts.config, "DISTRIBUTION");
  plan.addresses = addressesOf(facts.config);
  for (const SurveyedFileSystem& mount : facts.survey.fileSystems) {
    if (mount.copied) continue;
    plan.missingMounts.push_back({mount.mountPoint, mount.type, mount.device, mount.reason});
  }
  const CopiedFigures copied = copiedFigures(facts.survey);
  plan.bytes = copied.bytes;
  plan.files = copied.files;
  plan.counted = copied.counted;
  checkPlan(facts, plan);
  std::stable_sort(plan.findings.begin(), plan.findings.end(),
                   [](const Finding& a, const Finding& b) { return a.severity > b.severity; });
  if (!plan.findings.empty()) {
    const Severity worst = plan.findings.front().severity;
    if (worst == Severity::kBlock) plan.verdict = Verdict::kBlocked;
    if (worst == Severity::kWarning) plan.verdict = Verdict::kReadyWithWarnings;
  }
  return plan;
}

}  // namespace agent
