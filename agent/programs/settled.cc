#include "agent/programs/settled.h"

#include "host/error.h"
#include "host/file.h"
#include "host/paths.h"

namespace agent {

void writeEarly(const ContainerPlace& place) {
  for (const std::string& path : {place.root, place.privateArea}) {
    try {
      if (host::isDirectory(path)) host::syncFileSystem(path);
    } catch (const host::Error&) {
    }
  }
}

std::string settledProblem(const ContainerPlace& place) {
  if (place.privateArea.empty()) return "";
  try {
    // An image's own file system was written when it was unmounted: into the image, which is
    // a file here.
    host::syncFileSystem(place.privateArea);
  } catch (const host::Error& problem) {
    return "the container is not on the disk: " + std::string(problem.what());
  }
  const std::string marker = place.privateArea + "/" + host::kRegistrationMarker;
  if (host::exists(marker)) return "";
  return "the container could not be registered: there is no " + marker +
         "; the node's disk may be full";
}

}  // namespace agent
