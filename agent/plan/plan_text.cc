#include "agent/plan/plan_text.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "agent/plan/amounts.h"
#include "agent/plan/quota_checks.h"
#include "host/resources.h"
#include "host/text.h"
#include "host/visible.h"

namespace agent {

namespace {

std::string heading(const std::string& text) { return "\n" + text + "\n"; }

std::string listOf(const std::vector<std::string>& words) {
  return words.empty() ? "none" : host::joined(words, ", ");
}

// "  label       text", wrapped.
std::string row(const std::string& label, const std::string& text) {
  const std::string first =
      "  " + label + std::string(16 - std::min<size_t>(label.size(), 15), ' ');
  return wrapped(first, std::string(18, ' '), text);
}

std::string padded(std::string text, size_t width, bool right = false) {
  if (text.size() > width) text = text.substr(0, width - 1) + "~";
  const std::string space(width - text.size(), ' ');
  return right ? space + text : text + space;
}

std::string numberOf(const std::string& limit, const std::string& unit) {
  const auto value = host::parseResource(limit);
  return value ? amountText(value->limit, unit) : "";
}

// What to do after a plan.
const char* adviceFor(Verdict verdict) {
  switch (verdict) {
    case Verdict::kReady:
      return "The same command without the word \"plan\" migrates.";
    case Verdict::kReadyWithWarnings:
      return "The same command without the word \"plan\" migrates; see above for what will not be "
             "as on the server.";
    case Verdict::kBlocked:
      break;
  }
  return "A migration stops here, unless --force is given. Fix what is marked BLOCKED and plan "
         "again.";
}

const char* labelOf(Severity severity) {
  switch (severity) {
    case Severity::kBlock:
      return "BLOCKED  ";
    case Severity::kWarning:
      return "warning  ";
    case Severity::kNote:
      break;
  }
  return "note     ";
}

}  // namespace

std::string wrapped(const std::string& first, const std::string& indent, const std::string& text,
                    size_t width) {
  std::string result, line = first;
  bool empty = true;
  std::istringstream stream(host::visibleLine(text));
  for (std::string word; stream >> word;) {
    if (!empty && line.size() + 1 + word.size() > width) {
      result += line + "\n";
      line = indent;
      empty = true;
    }
    while (line.size() + (empty ? 0 : 1) + word.size() > width) {
      const size_t room = width - line.size();
      result += line + word.substr(0, room) + "\n";
      word.erase(0, room);
      line = indent;
      empty = true;
    }
    line += (empty ? "" : " ") + word;
    empty = false;
  }
  line.erase(line.find_last_not_of(' ') + 1);
  return result + line + "\n";
}

std::string limitsText(const std::vector<PlannedLimit>& limits, bool fixedToo) {
  std::string text = "  limit             soft           hard           measured\n";
  for (const PlannedLimit& limit : limits) {
    if (limit.measured.empty() && !fixedToo) continue;
    std::string line = "  " + padded(limit.name, 18) +
                       padded(numberOf(limit.soft, limit.unit), 15) +
                       padded(numberOf(limit.hard, limit.unit), 15) +
                       (limit.measured.empty() ? "(fixed)" : limit.measured);
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text;
}

std::string measurementText(const std::string& source, const Measurement& m,
                            const host::ShellVars& config) {
  std::string text = wrapped("", "", "Measurement of " + source);
  text += row("host name", m.hostname);
  text += row("distribution", m.distribution.empty() ? "not known" : m.distribution);
  text += row("addresses", listOf(m.addresses));
  text += row("name servers", listOf(m.nameservers));
  text += row("search domains", listOf(m.searchDomains));
  text += heading("Computed configuration");
  text += limitsText(plannedLimits(m, config), true);
  if (!m.excludes.empty()) {
    text += heading("Not to be copied");
    for (const MeasuredExclude& exclude : m.excludes) text += wrapped("  ", "    ", exclude.path);
  }
  if (!m.warnings.empty() || !m.notes.empty()) text += "\n";
  for (const MeasureWarning& warning : m.warnings) {
    text += wrapped("warning  ", "         ", warning.text);
  }
  for (const std::string& note : m.notes) text += wrapped("note     ", "         ", note);
  return text;
}

std::string verdictText(const Plan& plan) {
  std::string text;
  for (const Finding& finding : plan.findings) {
    text += wrapped(labelOf(finding.severity), "         ", finding.text);
  }
  switch (plan.verdict) {
    case Verdict::kReady:
      return text + "Verdict: ready\n";
    case Verdict::kReadyWithWarnings:
      return text + "Verdict: ready with warnings\n";
    case Verdict::kBlocked:
      break;
  }
  return text + "Verdict: blocked\n";
}

std::string planText(const PlanFacts& facts, const Plan& plan) {
  std::string text = wrapped("", "  ",
                             "Plan: " + facts.source + " becomes container " +
                                 std::to_string(facts.ctid) + ". Nothing was changed.");
  text += heading("To be copied");
  text += "  " + padded("file system", 38) + padded("type", 10) + padded("size", 13, true) +
          padded("files", 14, true) + "\n";
  size_t lines = 0;
  for (const SurveyedFileSystem& mount : facts.survey.fileSystems) {
    if (!mount.copied) continue;
    ++lines;
    text += "  " + padded(host::visibleLine(mount.mountPoint + " (" + mount.device + ")"), 38) +
            padded(host::visibleLine(mount.type), 10) + padded(bytesText(mount.bytes), 13, true) +
            padded(countText(mount.files), 14, true) + "\n";
  }
  if (lines > 1 || !facts.survey.swapFiles.empty()) {
    text += "  " + padded("together", 48) + padded(bytesText(plan.bytes), 13, true) +
            padded(countText(plan.files), 14, true) + "\n";
  }

  text += heading("Left out");
  // Those of one reason together: a server has dozens of the kernel's own.
  std::vector<std::pair<std::string, std::string>> reasons;
  for (const PlannedExclude& exclude : plan.excludes) {
    const auto known = std::find_if(reasons.begin(), reasons.end(), [&](const auto& entry) {
      return entry.first == exclude.reason;
    });
    if (known == reasons.end()) {
      reasons.push_back({exclude.reason, exclude.path});
    } else {
      known->second += " " + exclude.path;
    }
  }
  for (const auto& [reason, paths] : reasons) {
    text += wrapped("  ", "  ", reason + ":");
    text += wrapped("    ", "    ", paths);
  }
  if (!plan.missingMounts.empty()) {
    text += heading("Mount points that will hold nothing");
    for (const MissingMount& missing : plan.missingMounts) {
      text += wrapped("  ", "    ",
                      missing.mountPoint + " (" + missing.type + ", " + missing.device + ")");
    }
  }

  text += heading("On the node");
  text += row("private area", facts.node.privateArea);
  text +=
      row("disk space", bytesText(plan.bytes) + " of " + bytesText(facts.node.freeBytes) +
                            " free; " + bytesText(facts.node.freeBytes - plan.bytes) + " remain");
  text += row("inodes", facts.node.freeInodes < 0
                            ? countText(plan.files) + "; the file system has no fixed number"
                            : countText(plan.files) + " of " + countText(facts.node.freeInodes) +
                                  " free; " + countText(facts.node.freeInodes - plan.files) +
                                  " remain");

  text += heading("The container");
  if (facts.node.storage != "directory") text += row("storage", facts.node.storage);
  if (facts.node.ids > 0) text += row("privileges", "none: its root is a user of the node");
  text += row("host name", host::valueOf(facts.config, "HOSTNAME", "none"));
  text += row("addresses", listOf(plan.addresses));
  text += row("name servers", host::valueOf(facts.config, "NAMESERVER", "none"));
  text += row("distribution", plan.distribution.empty() ? "not known" : plan.distribution);
  text += row("its script",
              facts.node.distributionScript.empty() ? "none" : facts.node.distributionScript);
  text += "\n" + limitsText(plan.limits, false);

  const auto quotas = quotaRows(facts.survey);
  if (!quotas.empty()) text += heading("Disk quotas that arrive");
  for (const auto& [label, amount] : quotas) text += row(label, amount);

  text += heading("Services");
  text += row("will be stopped", listOf(facts.services));
  text += row("can be stopped", listOf(facts.survey.runningServices));
  return text + "\n" + verdictText(plan) + wrapped("", "", adviceFor(plan.verdict));
}

}  // namespace agent
