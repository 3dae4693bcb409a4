#include "agent/programs/output_file.h"

#include <sys/stat.h>

#include "agent/programs/complaint.h"

namespace agent {

bool canReplace(const char* option, const std::string& path) {
  struct stat found;
  if (lstat(path.c_str(), &found) != 0 || S_ISREG(found.st_mode)) return true;
  complain(std::string(option) + " '" + path + "' is not a file");
  return false;
}

}  // namespace agent
