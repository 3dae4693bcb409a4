#include "agent/programs/json_lines.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "agent/page/outage.h"
#include "agent/plan/plan_json.h"
#include "agent/verify/verify_text.h"
#include "host/clock.h"
#include "host/product.h"

namespace agent {

namespace {

using nlohmann::json;

constexpr std::chrono::seconds kPeriod(1);

// In ASCII and at once: it may be shown on a terminal, and another thread may write, too.
void tell(const char* event, json fields) {
  fields["event"] = event;
  fields["time"] = host::utcNow();
  const std::string text = fields.dump(-1, ' ', true, json::error_handler_t::replace) + "\n";
  fputs(text.c_str(), stdout);
  fflush(stdout);
}

}  // namespace

JsonLines::JsonLines() {
  tell("hello", {{"format", kJsonLinesFormat}, {"version", host::productVersion()}});
  telling_.emplace(kPeriod, [this]() { tellProgress(); });
}

void JsonLines::stageBegins(const std::string& stage) {
  {
    const std::lock_guard lock(mutex_);
    watch_.begins(stage);
  }
  tell("stageBegins", {{"stage", stage}});
}

void JsonLines::stageEnds(const std::string& stage, int result, double seconds) {
  {
    const std::lock_guard lock(mutex_);
    watch_.ends(stage);
  }
  tell("stageEnds", {{"stage", stage}, {"result", result}, {"seconds", seconds}});
}

void JsonLines::line(const std::string& text) { tell("text", {{"text", text}}); }

void JsonLines::expect(const Outlook& outlook) {
  const std::lock_guard lock(mutex_);
  watch_.expect(outlook);
}

void JsonLines::percent(const std::string& description, int percent) {
  tell("percent", {{"text", description}, {"percent", percent}});
}

void JsonLines::leftOut(const host::CopyReport& report) {
  json files = json::array();
  for (const host::NotCopied& file : report.files) {
    files.push_back({{"path", file.path}, {"reason", file.reason}});
  }
  tell("leftOut", {{"count", report.count}, {"files", std::move(files)}});
}

void JsonLines::tellProgress() {
  std::optional<Progress> progress;
  {
    const std::lock_guard lock(mutex_);
    progress = watch_.look();
  }
  if (!progress || (!progress->copied && !progress->outage)) return;
  json fields = {{"stage", progress->stage}};
  if (progress->copied) {
    fields["copied"] = progress->copied->bytes;
    fields["perSecond"] = progress->copied->perSecond;
    if (progress->toCopy > 0) fields["toCopy"] = progress->toCopy;
  }
  if (progress->outage) fields["outageSeconds"] = *progress->outage;
  tell("progress", std::move(fields));
}

void tellJsonPlan(const PlanFacts& facts, const Plan& plan) {
  tell("plan", {{"plan", json::parse(planJson(facts, plan))}});
}

void tellJsonVerified(const TreeComparison& found) {
  tell("verified", {{"comparison", json::parse(comparisonJson(found))}});
}

void tellJsonEnd(long long ctid, int status, const MigrationResult* result) {
  json fields = {{"container", ctid}, {"status", status}};
  if (result) {
    fields["leftOut"] = result->leftOut.count;
    if (!result->succeeded) {
      fields["stage"] = result->stage;
      fields["error"] = result->text;
    }
    if (const auto outage = outageSeconds(result->record)) fields["outageSeconds"] = *outage;
  }
  tell("end", std::move(fields));
}

}  // namespace agent
