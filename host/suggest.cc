#include "host/suggest.h"

#include <algorithm>

namespace host {
namespace {

size_t distance(const std::string& a, const std::string& b) {
  std::vector<std::vector<size_t>> cost(a.size() + 1, std::vector<size_t>(b.size() + 1));
  for (size_t i = 0; i <= a.size(); ++i) {
    for (size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        cost[i][j] = i + j;
        continue;
      }
      const size_t change = a[i - 1] == b[j - 1] ? 0 : 1;
      cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, cost[i - 1][j - 1] + change});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
      }
    }
  }
  return cost[a.size()][b.size()];
}

std::string withHint(std::string text, const std::string& meant) {
  return meant.empty() ? text : text + ", did you mean '" + meant + "'?";
}

/// The command that is named, empty for none; `wrong` gets the first word that could be one
/// and is not.
std::string commandIn(const std::vector<std::string>& words, const CommandWords& known,
                      std::string& wrong) {
  for (const std::string& word : words) {
    if (word == "--") break;
    if (word.empty() || word.starts_with('-')) continue;
    if (known.options.contains(word)) return word;
    if (wrong.empty()) wrong = word;
  }
  return "";
}

}  // namespace

std::string nearest(const std::string& word, const std::vector<std::string>& words) {
  std::string found;
  // A third of the letters may be wrong, and one in any case.
  size_t least = std::max<size_t>(1, word.size() / 3) + 1;
  for (const std::string& candidate : words) {
    const size_t here = distance(word, candidate);
    if (here >= least) continue;
    least = here;
    found = candidate;
  }
  return found;
}

std::string misspelt(const std::vector<std::string>& words, const CommandWords& known) {
  std::string wrong;
  const std::string command = commandIn(words, known, wrong);
  if (!wrong.empty() && (command.empty() || known.commandNeeded)) {
    std::vector<std::string> commands;
    for (const auto& [name, options] : known.options) {
      if (!name.empty()) commands.push_back(name);
    }
    const std::string meant = nearest(wrong, commands);
    if (known.commandNeeded || !meant.empty()) {
      return withHint("there is no command '" + wrong + "'", meant);
    }
  }
  std::vector<std::string> options = known.options.at(command);
  if (known.sharedOptions) {
    options.insert(options.end(), known.options.at("").begin(), known.options.at("").end());
  }
  for (const std::string& word : words) {
    if (word == "--") break;
    if (!word.starts_with("--")) continue;
    const std::string name = word.substr(0, word.find('='));
    if (std::find(options.begin(), options.end(), name) != options.end()) continue;
    const std::string text = command.empty() ? "there is no option '" + name + "'"
                                             : "'" + command + "' has no option '" + name + "'";
    return withHint(text, nearest(name, options));
  }
  return "";
}

}  // namespace host
