#ifndef QX_SHARE_ENGINE_ROUNDS_H
#define QX_SHARE_ENGINE_ROUNDS_H

#include <chrono>
#include <vector>

namespace engine {

/// Whether a pass is to walk over the tree once more. took: how long each of its walks
/// took, the first one first.
///
/// While much was to be sent, much has changed: again, and again as long as it takes
/// clearly less time than before, so that little is left for the next pass, during which
/// services are down.
bool goesRoundAgain(const std::vector<std::chrono::steady_clock::duration>& took);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_ROUNDS_H
