#include "node/suggest.h"

#include <algorithm>

namespace node {
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

}  // namespace node
