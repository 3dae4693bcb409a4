#include "migrate/ct_lock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "expand/descriptors.h"
#include "framework/env_manager.h"

namespace P2V {

namespace {

constexpr std::size_t kBufferSize = 4096;
constexpr int kAttempts = 3;
constexpr useconds_t kPause = 500000;  // microseconds

bool isRunning(int pid) {
  char path[kBufferSize];
  std::snprintf(path, sizeof path, "/proc/%d", pid);
  struct stat entry;
  return stat(path, &entry) == 0;
}

// Makes a file with the lock's content beside the lock, its name in `temporary`.
// Returns 0 or the errno value of what failed.
int makeContent(const std::string& path, const char* status, char (&temporary)[kBufferSize]) {
  std::snprintf(temporary, sizeof temporary, "%sXXXXXX", path.c_str());
  const int fd = mkostemp(temporary, O_CLOEXEC);
  if (fd < 0) return errno;
  char content[kBufferSize];
  std::snprintf(content, sizeof content, "%d\n%s\n", static_cast<int>(getpid()), status);
  const bool written = Expand::writeFD(fd, content, std::strlen(content)) >= 0;
  const int error = errno;
  close(fd);
  if (written) return 0;
  // An empty lock would look stale to everybody else.
  unlink(temporary);
  return error;
}

}  // namespace

void getLockFile(unsigned int veid, std::string& path) {
  const auto manager = QXA::QXALibFunctionality::getQXAEnvMLocal();
  QXA::QXAVtSettings settings;
  if (!manager || manager->getVtSettings(settings) != 0 || settings.lockDir.empty()) return;
  path = settings.lockDir + "/" + std::to_string(veid) + ".lck";
}

int readLockPid(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return -1;
  char content[kBufferSize + 1];
  const ssize_t length = Expand::readFD(fd, content, kBufferSize);
  close(fd);
  content[length > 0 ? length : 0] = '\0';
  int pid = 0;
  return std::sscanf(content, "%d", &pid) == 1 ? pid : 0;
}

int lockCT(unsigned int veid, const char* status,
           const boost::intrusive_ptr<QXL::QXLRequestContextPrototype>& context) {
  std::string path;
  getLockFile(veid, path);
  if (path.empty()) {
    // Without the settings there is no telling which file the host's own tools
    // look at, so nothing is made anywhere.
    context->fsetLastError(-1, "Unable to lock CT %u: the host settings name no lock directory",
                           veid);
    return -1;
  }
  char temporary[kBufferSize];
  if (const int error = makeContent(path, status, temporary)) {
    context->fsetLastError(-1, "Unable to lock CT %d: %s", static_cast<int>(veid),
                           std::strerror(error));
    return -1;
  }

  int result = 0;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    // Linking either makes the lock with its content or fails: nobody sees a lock
    // without a process id.
    if (link(temporary, path.c_str()) == 0) break;
    const int pid = readLockPid(path);
    if (pid < 0) {
      usleep(kPause);
      continue;
    }
    if (pid > 0 && isRunning(pid)) {
      context->fsetLastError(-1, "Unable to lock CT %d already locked by process #%d",
                             static_cast<int>(veid), pid);
      result = -1;
      break;
    }
    unlink(path.c_str());
  }
  // Attempts that ran out without a live holder count as success. That is intended:
  // a lock that nobody can be shown to hold must not stop a migration.
  unlink(temporary);
  return result;
}

int unlockCT(unsigned int veid) {
  std::string path;
  getLockFile(veid, path);
  unlink(path.c_str());
  return 0;
}

}  // namespace P2V
