#include "share/engine/removal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "share/engine/beneath.h"
#include "share/engine/listing.h"
#include "share/engine/records.h"
#include "share/engine/temporary_name.h"

namespace engine {

namespace {

bool removeContents(int directory, const std::string& path, const Rules& rules,
                    Problems& problems) {
  Listing listing;
  if (!listing.read(directory)) {
    problems.add(path, std::string("cannot read the directory: ") + std::strerror(errno));
    return false;
  }
  bool all = true;
  for (const Listing::Item& item : listing.items()) {
    const std::string name(listing.name(item));
    const std::string below = joinPath(path, name);
    struct stat status {};
    if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (!isTemporaryName(name) && rules.excludes(below, S_ISDIR(status.st_mode)))
      all = false;
    else
      all = removeEntry(directory, name, below, rules, problems) && all;
  }
  return all;
}

}  // namespace

bool removeEntry(int directory, const std::string& name, const std::string& path,
                 const Rules& rules, Problems& problems) {
  if (::unlinkat(directory, name.c_str(), 0) == 0 || errno == ENOENT) return true;
  const int error = errno;
  const Fd below = openEntry(directory, name, O_RDONLY | O_DIRECTORY);
  if (!below) {
    problems.add(path, std::string("cannot remove it: ") + std::strerror(error));
    return false;
  }
  if (!removeContents(below.get(), path, rules, problems)) return false;
  if (::unlinkat(directory, name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT) return true;
  problems.add(path, std::string("cannot remove the directory: ") + std::strerror(errno));
  return false;
}

}  // namespace engine
