#ifndef QX_SHARE_RSYNC_ENGINE_CHOICE_H
#define QX_SHARE_RSYNC_ENGINE_CHOICE_H

#include <optional>
#include <string>
#include <vector>

#include "share/rsync/options.h"

namespace qxrsync {

// The engine knows one way of copying: the one that a migration asks for. Every
// other command line is stock rsync's, and so is every one if QX_RSYNC_ENGINE in the
// environment says "stock". Both functions throw Failure (status 1) if it says anything
// else than that or "own".

/// What the engine needs of a client's command line.
struct EngineTask {
  std::string destination;
  std::vector<std::string> patterns;  ///< of --exclude
  bool operator==(const EngineTask&) const = default;
};

/// Nothing if it is not one for the engine.
std::optional<EngineTask> engineTask(const Options& clientOptions);

/// Whether a server's command line is one for the engine.
bool engineServes(const Options& serverOptions);

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_ENGINE_CHOICE_H
