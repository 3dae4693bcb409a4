// What somebody may have meant by a word that is none.
#ifndef QX_NODE_SUGGEST_H
#define QX_NODE_SUGGEST_H

#include <string>
#include <vector>

namespace node {

/// The word of `words` that is nearest to `word`: the fewest letters inserted, left
/// out, changed or swapped with their neighbour. Empty when none is near.
std::string nearest(const std::string& word, const std::vector<std::string>& words);

}  // namespace node

#endif
