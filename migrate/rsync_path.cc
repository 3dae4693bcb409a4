#include "migrate/rsync_path.h"

#include <cstdlib>

namespace P2V {

std::string rsyncPath() {
  const char* directory = std::getenv("QXA_TMPDIR");
  return std::string(directory ? directory : "") + "/usr/local/share/qxlinmigrate/rsync";
}

}  // namespace P2V
