#include "agent/system/process_mark.h"

#include <cstdlib>

#include "host/error.h"
#include "host/process_identity.h"

namespace agent {

void markPrograms() {
  try {
    setenv(kProcessVariable, host::processWord(host::thisProcess()).c_str(), 1);
  } catch (const host::Error&) {
    // Without /proc there are no migrations either.
  }
}

std::string temporaryFolderTemplate() {
  return std::string("/tmp/") + kTemporaryPrefix + host::processWord(host::thisProcess()) +
         ".XXXXXX";
}

}  // namespace agent
