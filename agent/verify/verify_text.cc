#include "agent/verify/verify_text.h"

#include <nlohmann/json.hpp>

#include "host/text.h"
#include "host/visible.h"

namespace agent {

namespace {

using host::textf;
using host::visibleLine;

std::string line(const TreeDifference& one) {
  std::string text =
      "  " + visibleLine(one.path) + ": " + one.aspect + ": " + visibleLine(one.text);
  if (!one.reason.empty()) text += " (" + visibleLine(one.reason) + ")";
  return text + "\n";
}

}  // namespace

std::string comparisonText(const TreeComparison& comparison, bool all) {
  std::string text = textf("Compared %llu entries, %llu of them files with %llu MiB.\n",
                           static_cast<unsigned long long>(comparison.entries),
                           static_cast<unsigned long long>(comparison.files),
                           static_cast<unsigned long long>(comparison.bytes >> 20));
  if (!comparison.reasons.empty()) text += "Differences that are as they should be:\n";
  if (all) {
    for (const TreeDifference& one : comparison.differences) {
      if (!one.reason.empty()) text += line(one);
    }
  } else {
    for (const auto& [reason, count] : comparison.reasons) {
      text += textf("  %6llu  %s\n", static_cast<unsigned long long>(count),
                    visibleLine(reason).c_str());
    }
  }
  if (comparison.unexpected == 0) return text + "There are no unexpected differences.\n";
  text += textf("%llu unexpected differences:\n",
                static_cast<unsigned long long>(comparison.unexpected));
  for (const TreeDifference& one : comparison.differences) {
    if (one.reason.empty()) text += line(one);
  }
  if (comparison.untold != 0) {
    text += textf("  and %llu more differences, which are not told one by one\n",
                  static_cast<unsigned long long>(comparison.untold));
  }
  return text;
}

std::string comparisonJson(const TreeComparison& comparison) {
  nlohmann::json differences = nlohmann::json::array();
  for (const TreeDifference& one : comparison.differences) {
    nlohmann::json item{{"path", one.path}, {"aspect", one.aspect}, {"text", one.text}};
    if (!one.reason.empty()) item["reason"] = one.reason;
    differences.push_back(std::move(item));
  }
  const nlohmann::json all{{"entries", comparison.entries}, {"files", comparison.files},
                           {"bytes", comparison.bytes},     {"unexpected", comparison.unexpected},
                           {"untold", comparison.untold},   {"differences", differences}};
  // Names of files may hold any byte; JSON has characters.
  return all.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace agent
