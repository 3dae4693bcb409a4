#include "share/rsync/engine_choice.h"

#include <algorithm>
#include <string_view>

#include "share/engine/hello.h"
#include "share/engine/rules.h"
#include "share/rsync/environment.h"

namespace qxrsync {

namespace {

constexpr std::string_view kExclude = "--exclude=";

bool wanted() { return environmentSays("QX_RSYNC_ENGINE", "own", "stock"); }

// -a, -H, -S and -E in one word, in any order.
bool isUsualLetters(std::string_view argument) {
  if (argument.size() != 5 || argument[0] != '-') return false;
  std::string letters(argument.substr(1));
  std::sort(letters.begin(), letters.end());
  return letters == "EHSa";
}

// What fits into the engine's greeting.
bool areFew(const std::vector<std::string>& patterns) {
  size_t bytes = 0;
  for (const std::string& pattern : patterns) bytes += pattern.size();
  return patterns.size() <= engine::kMostPatterns && bytes <= engine::kMostPatternBytes;
}

bool isPattern(std::string_view pattern) {
  return pattern.size() <= engine::kLongestPattern && engine::Rules::understands(pattern);
}

}  // namespace

std::optional<EngineTask> engineTask(const Options& options) {
  if (!wanted() || !options.fdIn || options.destination.empty()) return std::nullopt;
  EngineTask task;
  task.destination = options.destination;
  bool letters = false;
  bool numeric = false;
  bool deletes = false;
  int names = 0;
  for (const std::string& argument : options.arguments) {
    if (argument.empty()) return std::nullopt;
    if (argument[0] != '-') {
      ++names;
    } else if (isUsualLetters(argument)) {
      letters = true;
    } else if (argument == "--numeric-ids") {
      numeric = true;
    } else if (argument == "--delete") {
      deletes = true;
    } else if (argument.compare(0, kExclude.size(), kExclude) == 0 &&
               isPattern(std::string_view(argument).substr(kExclude.size()))) {
      task.patterns.push_back(argument.substr(kExclude.size()));
    } else {
      return std::nullopt;
    }
  }
  const bool usual = letters && numeric && deletes && names == 2 && areFew(task.patterns);
  return usual ? std::optional(task) : std::nullopt;
}

bool engineServes(const Options& options) {
  const std::vector<std::string>& arguments = options.arguments;
  return wanted() && arguments.size() == 7 && isUsualLetters(arguments[2]) &&
         arguments[3] == "--numeric-ids" && arguments[4] == "--delete" && arguments[5] == "." &&
         arguments[6].front() == '/' && arguments[6].back() == '/';
}

}  // namespace qxrsync
