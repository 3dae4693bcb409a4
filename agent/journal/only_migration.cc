#include "agent/journal/only_migration.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "host/error.h"

namespace agent {

namespace {

constexpr char kFolder[] = "/run/qxlinmigrate";
constexpr char kFile[] = "/run/qxlinmigrate/migrations";  // the byte of a container's number

}  // namespace

OnlyMigration::OnlyMigration(unsigned ctid) {
  mkdir(kFolder, 0700);
  file_.reset(open(kFile, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file_) host::failErrno("cannot open %s", kFile);
  struct flock mine = {};
  mine.l_type = F_WRLCK;
  mine.l_whence = SEEK_SET;
  mine.l_start = ctid;
  mine.l_len = 1;
  if (fcntl(file_.get(), F_SETLK, &mine) == 0) return;
  if (errno != EACCES && errno != EAGAIN) host::failErrno("cannot lock %s", kFile);
  struct flock theirs = mine;
  if (fcntl(file_.get(), F_GETLK, &theirs) != 0 || theirs.l_type == F_UNLCK) theirs.l_pid = 0;
  host::fail(host::ExitCode::kLocked,
             "container %u is being migrated already, by process %d: wait for its end", ctid,
             static_cast<int>(theirs.l_pid));
}

}  // namespace agent
