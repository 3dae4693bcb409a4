#ifndef QX_SHARE_ENGINE_CHANGED_PLACES_H
#define QX_SHARE_ENGINE_CHANGED_PLACES_H

#include <string>
#include <vector>

#include "share/engine/mounts_below.h"
#include "share/engine/tracker.h"
#include "share/engine/visits.h"

namespace engine {

/// Finds the directories and files that a tracker has gathered handles of, and puts
/// them, with the names, among what is known. What is not seen in the tree is left out. A file
/// system on which some cannot be found is taken out of known.devices.
///
/// tree: opened at `top`, which is absolute and without symbolic links; mounts: those
/// in it whose devices are in known.devices.
void findPlaces(const Tree& tree, const std::string& top, const std::vector<MountBelow>& mounts,
                const std::vector<Changed>& changes, ChangesKnown& known);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_CHANGED_PLACES_H
