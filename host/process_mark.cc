#include "host/process_mark.h"

#include <cstdlib>

#include "host/error.h"
#include "host/process_identity.h"

namespace host {

void markPrograms() {
  try {
    setenv(kProcessVariable, processWord(thisProcess()).c_str(), 1);
  } catch (const Error&) {
    // Without /proc there are no migrations either.
  }
}

std::string temporaryFolderTemplate() {
  return std::string("/tmp/") + kTemporaryPrefix + processWord(thisProcess()) + ".XXXXXX";
}

}  // namespace host
