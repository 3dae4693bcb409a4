// What somebody may have meant by a word that is none.
#ifndef QX_HOST_SUGGEST_H
#define QX_HOST_SUGGEST_H

#include <map>
#include <string>
#include <vector>

namespace host {

/// The word of `words` that is nearest to `word`: the fewest letters inserted, left
/// out, changed or swapped with their neighbour. Empty when none is near.
std::string nearest(const std::string& word, const std::vector<std::string>& words);

/// What can stand on a command line.
struct CommandWords {
  /// By the name of each command its options, "--name"; those of no command by "".
  std::map<std::string, std::vector<std::string>> options;
  /// Whether the options of no command may stand beside a command's own.
  bool sharedOptions = false;
  /// Whether a command must be named. Where it need not be, a word that is none is only
  /// told of when it is near to one.
  bool commandNeeded = true;
};

/// For a command line that cannot be understood: the first option or command in it that
/// there is not, with what may have been meant, as in "there is no command 'strat', did you
/// mean 'start'?". Empty when each of them exists. `words` begins after the program.
std::string misspelt(const std::vector<std::string>& words, const CommandWords& known);

}  // namespace host

#endif
