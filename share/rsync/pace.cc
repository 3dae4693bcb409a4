#include "share/rsync/pace.h"

#include <stdexcept>

#include "share/rsync/failure.h"

namespace qxrsync {

host::CopyPace wantedPace() {
  try {
    return host::paceFromEnvironment();
  } catch (const std::invalid_argument& problem) {
    throw Failure(kExitSyntax, problem.what());
  }
}

}  // namespace qxrsync
