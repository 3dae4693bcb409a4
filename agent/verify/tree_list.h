// Listing a tree with the hashes of its files.
#ifndef QX_AGENT_VERIFY_TREE_LIST_H
#define QX_AGENT_VERIFY_TREE_LIST_H

#include <functional>
#include <string>
#include <vector>

#include "share/engine/rules.h"

namespace agent {

/// Writes the list of the tree below `top` to the descriptor: first this machine's clock
/// (seconds, 8 bytes), then the entries that the rules do not exclude, in the order of
/// comesBefore, each with its length in front (see putTreeEntry), then a length of 0.
/// Files are hashed by several threads; symbolic links are not followed. What cannot be
/// read is told with its entry. `stopped` is asked now and then and ends it early.
/// Throws std::runtime_error when the top cannot be read, nobody reads the list any
/// more, or it was stopped.
void listTree(const std::string& top, const engine::Rules& rules, int to,
              const std::function<bool()>& stopped);

/// The rules for a migration's exclusions, those that every migration has included.
/// Throws std::runtime_error that names a pattern which cannot be judged here.
engine::Rules rulesFor(std::vector<std::string> excludes);

}  // namespace agent

#endif
