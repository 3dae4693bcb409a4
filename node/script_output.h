// What a script inside a container says, brought to people.
#ifndef QX_NODE_SCRIPT_OUTPUT_H
#define QX_NODE_SCRIPT_OUTPUT_H

#include <string>
#include <string_view>

#include "host/fd.h"
#include "node/host.h"

namespace node {

/// Takes text as it comes and gives its lines, each fit to be shown (visible.h).
class VisibleLines {
 public:
  /// The lines that `text` completes, with their line ends.
  std::string take(std::string_view text);
  /// The last line, if it has no end.
  std::string rest();

 private:
  std::string line_;  ///< begun, without end
};

/// Reads both descriptors until nobody can write to them any more, and writes what they
/// say, line by line, to this process's standard output and standard error. A script
/// whose output nobody takes goes on, unheard.
void relayOutput(const Fd& out, const Fd& err);

}  // namespace node

#endif
