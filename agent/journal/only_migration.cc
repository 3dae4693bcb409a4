#include "agent/journal/only_migration.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "host/error.h"
#include "host/paths.h"

namespace agent {

namespace {

// The byte of a container's number is its lock. Not where the closed-in rsync can write.
const std::string& file() {
  static const std::string path = std::string(host::kRunDir) + "/migrations";
  return path;
}

}  // namespace

OnlyMigration::OnlyMigration(unsigned ctid) {
  mkdir(host::kRunDir, 0755);
  file_.reset(open(file().c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file_) host::failErrno("cannot open %s", file().c_str());
  struct flock mine = {};
  mine.l_type = F_WRLCK;
  mine.l_whence = SEEK_SET;
  mine.l_start = ctid;
  mine.l_len = 1;
  if (fcntl(file_.get(), F_SETLK, &mine) == 0) return;
  if (errno != EACCES && errno != EAGAIN) host::failErrno("cannot lock %s", file().c_str());
  struct flock theirs = mine;
  if (fcntl(file_.get(), F_GETLK, &theirs) != 0 || theirs.l_type == F_UNLCK) theirs.l_pid = 0;
  host::fail(host::ExitCode::kLocked,
             "container %u is being migrated already, by process %d: wait for its end", ctid,
             static_cast<int>(theirs.l_pid));
}

}  // namespace agent
