#include "agent/page/page_text.h"

#include <algorithm>
#include <cmath>

#include "agent/journal/journal_text.h"
#include "agent/page/outage.h"
#include "agent/plan/amounts.h"
#include "agent/wire/message_fields.h"
#include "agent/wire/steps.h"
#include "host/clock.h"
#include "host/product.h"
#include "host/resources.h"
#include "host/text.h"

namespace agent::page_text {

namespace {

using host::MigrationRecord;
using host::MigrationState;
using host::textf;

// The only machines that are migrated are x86-64.
constexpr uint64_t kPageBytes = 4096;

bool isOpen(const MigrationRecord& record) {
  return std::any_of(record.stages.begin(), record.stages.end(),
                     [](const host::MigrationStage& one) { return !one.result; });
}

// It ended by itself, rather than by its process's end, and has said so to the server.
bool serverWasTold(const MigrationRecord& record) {
  return !record.stages.empty() && record.stages.back().name == kMethodFinish &&
         record.stages.back().result == 0;
}

// The container is there, and the server does not know.
bool isUnconfirmed(const MigrationRecord& record) {
  return record.state == MigrationState::kSucceeded && !serverWasTold(record);
}

std::string idOf(const MigrationRecord& record) { return std::to_string(record.ctid); }

std::string outageRemark(const MigrationRecord& record) {
  switch (record.state) {
    case MigrationState::kSucceeded:
      if (isUnconfirmed(record)) {
        return "from the stop of the services to the end of the last stage; the server, which "
               "could not be told, starts them again by itself";
      }
      return "from the stop of the services until the container was complete; it lasts until "
             "the container is started, which is not recorded";
    case MigrationState::kFailed:
    case MigrationState::kCancelled:
      if (serverWasTold(record)) return "until the server had started its services again";
      return "and longer: the server could not be told, and starts its services again by itself";
    case MigrationState::kRunning:
      if (!host::isInterrupted(record)) return "so far, without the stage that runs";
      break;
    case MigrationState::kCleaned:
      break;
  }
  return "and longer: when the server's guard started its services again is not recorded";
}

}  // namespace

std::string title(const MigrationRecord& record) {
  return "Migration of " + record.source + " into container " + idOf(record);
}

std::string ending(const MigrationRecord& record) {
  switch (record.state) {
    case MigrationState::kSucceeded:
      if (isUnconfirmed(record)) {
        return "The container is complete, but the server could not be told so.";
      }
      if (!record.leftOut.isComplete()) return "The container is there; some files are not.";
      return "The container is complete.";
    case MigrationState::kFailed:
      return "The container was not made. This host was rolled back.";
    case MigrationState::kCancelled:
      return "It was stopped by whoever ran it, and undone.";
    case MigrationState::kCleaned:
      return "It was interrupted, and what it had left on this host was dealt with.";
    case MigrationState::kRunning:
      break;
  }
  if (host::isInterrupted(record)) {
    return "Its process died, or its host did. What it has left is to be dealt with.";
  }
  return "It has not ended: this is what was written last.";
}

Figure duration(const MigrationRecord& record) {
  if (record.stages.empty()) return {"not known", "no stage had begun"};
  return {timeText(tookSeconds(record)),
          isOpen(record) ? "and longer: the last stage is not in it" : "all stages together"};
}

Figure outage(const MigrationRecord& record) {
  if (record.services.empty()) return {"none", "no service was to be stopped"};
  if (const auto seconds = outageSeconds(record)) return {timeText(*seconds), outageRemark(record)};
  for (const host::MigrationStage& one : record.stages) {
    if (!stepOf(one.name).stopsServices) continue;
    return {"not known", "the services were not all stopped when that stage ended"};
  }
  return {"none", "it ended before the services were to be stopped"};
}

Figure copied(const MigrationRecord& record) {
  if (record.bytes == 0 && record.files == 0) return {"not counted", "there was no plan"};
  return {bytesText(record.bytes), "in " + countText(record.files) + " files, as the plan counted"};
}

std::vector<std::string> advice(const MigrationRecord& record) {
  const std::string id = idOf(record);
  const std::string services =
      record.services.empty()
          ? ""
          : " The server, which was not told, starts again by itself what was stopped.";
  std::vector<std::string> list;
  switch (record.state) {
    case MigrationState::kSucceeded:
      if (isUnconfirmed(record)) {
        list.push_back(
            "The server starts again what was stopped, unless only its answer was lost. Look there "
            "what runs, and stop that before the container is started: what changes until then is "
            "not in it. 'qxctl destroy " +
            id + "', and the same migration again, bring all of it.");
      }
      if (!record.leftOut.isComplete()) {
        list.emplace_back(
            "Look at the list of what is not as on the server, and bring over by hand what is "
            "needed.");
      }
      return list;
    case MigrationState::kFailed:
      list.emplace_back("Mend what the failure names, and give the same command again.");
      break;
    case MigrationState::kCancelled:
      list.emplace_back("The same command begins the migration again.");
      break;
    case MigrationState::kCleaned:
      list.push_back("The same command begins the migration again." + services);
      break;
    case MigrationState::kRunning:
      if (!host::isInterrupted(record)) return list;
      list.push_back(
          "The same command goes on from what was copied, if the server is still the "
          "same one. 'qxmigrate clean " +
          id + "' removes what was left, or registers the container where it was complete." +
          services);
      break;
  }
  const bool undone =
      record.state == MigrationState::kFailed || record.state == MigrationState::kCancelled;
  if (undone && !record.stages.empty() && !serverWasTold(record)) {
    list.emplace_back(
        "The server could not be told: it undoes its part by itself, starts again what was "
        "stopped, and removes the agent.");
  }
  if (!record.keptArea.empty()) {
    list.push_back("What was copied is kept in " + record.keptArea +
                   ": the next attempt goes on from there if the server is still the same one.");
  }
  return list;
}

std::vector<std::string> stages(const MigrationRecord& record) {
  StepTexts texts;
  std::vector<std::string> list;
  for (const host::MigrationStage& one : record.stages) {
    const std::string text = texts.next(one.name);
    list.push_back(text.empty() ? one.name : text);
  }
  return list;
}

std::string stageTime(const host::MigrationStage& stage) {
  if (!stage.result) return "not ended";
  const auto whole = static_cast<long long>(std::clamp(stage.seconds, 0.0, 1e9));
  std::string text;
  if (whole < 60) {
    text = textf("%.1f s", stage.seconds);
  } else if (whole < 3600) {
    text = textf("%lld min %lld s", whole / 60, whole % 60);
  } else {
    text = textf("%lld h %lld min", whole / 3600, whole % 3600 / 60);
  }
  return *stage.result == 0 ? text : text + ", failed";
}

std::string timelineSummary(const MigrationRecord& record) {
  std::string text = "Stages one below the other, each with a bar for when it ran. Together: " +
                     timeText(tookSeconds(record)) + ".";
  if (const auto begin = outageBegin(record)) {
    text += " Services were down from the stage \"" + stages(record)[*begin] + "\" on, for " +
            timeText(*outageSeconds(record)) + ".";
  }
  return text + " The table below has the same figures.";
}

namespace {

const host::Resource* find(const host::ResourceFigures& figures) {
  for (const host::Resource& resource : host::resources()) {
    if (figures.name == resource.name) return &resource;
  }
  return nullptr;
}

}  // namespace

std::string resource(const host::ResourceFigures& figures) {
  const host::Resource* const known = find(figures);
  return known ? known->limits : "";
}

std::string amount(const host::ResourceFigures& figures, uint64_t value) {
  const host::Resource* const known = find(figures);
  const std::string_view unit = known ? known->unit : "";
  if (unit != "pages") return amountText(value, unit);
  const bool fits = value < host::kUnlimited / kPageBytes;
  return amountText(fits ? value * kPageBytes : host::kUnlimited, "bytes");
}

std::string measured(const host::ResourceFigures& figures) {
  if (figures.measured) return amount(figures, *figures.measured);
  const host::Resource* const known = find(figures);
  return known && *known->computed != '\0' ? std::string("computed ") + known->computed
                                           : "not measured";
}

std::string assigned(const host::ResourceFigures& figures) {
  const std::string hard = amount(figures, figures.assigned.limit);
  const std::string soft = amount(figures, figures.assigned.barrier);
  return soft == hard ? hard : "soft " + soft + ", hard " + hard;
}

std::string heldBy(const host::ResourceFigures& figures) {
  const host::Resource* const known = find(figures);
  switch (known ? known->holder : host::Holder::kNobody) {
    case host::Holder::kKernel:
      return "the kernel";
    case host::Holder::kFileSystem:
      return "its file system";
    case host::Holder::kQuota:
      return "disk quotas";
    case host::Holder::kNobody:
      break;
  }
  return "nobody";
}

std::string unlisted(const host::CopyReport& report) {
  if (report.count <= report.files.size()) return "";
  return "And " + countText(static_cast<long long>(report.count - report.files.size())) +
         " more that are not listed.";
}

std::string lineCount(const MigrationRecord& record) {
  if (record.texts.size() == 1) return "One line";
  return "The last " + countText(static_cast<long long>(record.texts.size())) + " lines";
}

std::string moment(const std::string& time) {
  if (time.size() != sizeof "2026-11-21T22:21:25Z" - 1 || !host::parseUtc(time)) return time;
  return time.substr(0, 10) + " " + time.substr(11, 8) + " UTC";
}

std::string colophon(const std::string& name, const MigrationRecord& record) {
  return "Made by qxmigrate " + host::productVersion() + " of the journal " + name +
         ", which was last written " + moment(record.updated) + ".";
}

}  // namespace agent::page_text
