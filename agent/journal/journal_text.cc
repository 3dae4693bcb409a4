#include "agent/journal/journal_text.h"

#include "host/text.h"
#include "host/visible.h"

namespace agent {

namespace {

using host::textf;
using host::visibleLine;

constexpr size_t kLongestLeftOut = 4000;  // bytes

std::string row(const char* name, const std::string& value) {
  return value.empty() ? "" : textf("  %-13s %s\n", name, visibleLine(value).c_str());
}

std::string stageLine(const host::MigrationStage& stage) {
  if (!stage.result) {
    return textf("    %-18s %s  not ended\n", visibleLine(stage.name).c_str(),
                 visibleLine(stage.begun).c_str());
  }
  return textf("    %-18s %s  %8.1f s  %s\n", visibleLine(stage.name).c_str(),
               visibleLine(stage.begun).c_str(), stage.seconds,
               *stage.result == 0 ? "done" : "FAILED");
}

std::string leftOutText(const host::CopyReport& report) {
  if (report.isComplete()) return "";
  std::string text =
      textf("  not as on the server (%llu)\n", static_cast<unsigned long long>(report.count));
  for (const host::NotCopied& file : report.files) {
    text += "    " + visibleLine(textOf(file), kLongestLeftOut) + "\n";
  }
  if (report.count > report.files.size()) text += "    and more that are not listed\n";
  return text;
}

}  // namespace

std::string standingOf(const host::MigrationRecord& record) {
  return host::isInterrupted(record) ? "interrupted" : host::stateName(record.state);
}

std::string journalList(const std::vector<host::MigrationJournal>& journals) {
  std::string text =
      textf("%-28s  %-11s  %-18s  %s\n", "MIGRATION", "STATE", "LAST STAGE", "SOURCE");
  for (const host::MigrationJournal& journal : journals) {
    const host::MigrationRecord& record = journal.record;
    text += textf("%-28s  %-11s  %-18s  %s\n", journal.name.c_str(), standingOf(record).c_str(),
                  record.stages.empty() ? "-" : visibleLine(record.stages.back().name).c_str(),
                  visibleLine(record.source).c_str());
  }
  return text;
}

std::string journalText(const host::MigrationJournal& journal) {
  const host::MigrationRecord& record = journal.record;
  std::string text = textf("migration %s: %s\n", journal.name.c_str(), standingOf(record).c_str());
  text += row("container", std::to_string(record.ctid));
  text += row("source", record.source);
  text += row("machine id", record.server.machineId);
  text += row("host key", record.server.hostKey);
  text += row("distribution", record.distribution);
  text += row("template", record.osTemplate);
  text += row("services", host::joined(record.services));
  text += row("excludes", host::joined(record.excludes));
  text += row("private area", record.privateArea);
  text += row("begun", record.begun);
  text += row("last written", record.updated);
  if (record.bytes > 0) {
    text += row("to copy", textf("%lld bytes in %lld files", record.bytes, record.files));
  }
  if (!record.error.empty()) text += row("failed", record.failedStage + ": " + record.error);
  text += row("kept", record.keptArea);
  if (!record.stages.empty()) text += "  stages\n";
  for (const host::MigrationStage& stage : record.stages) text += stageLine(stage);
  if (!record.warnings.empty()) text += "  warnings\n";
  for (const std::string& line : record.warnings) text += "    " + visibleLine(line) + "\n";
  text += leftOutText(record.leftOut);
  if (!record.texts.empty()) text += "  texts\n";
  for (const std::string& line : record.texts) text += "    " + visibleLine(line) + "\n";
  return text;
}

}  // namespace agent
