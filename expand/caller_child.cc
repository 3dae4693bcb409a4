// The child process between fork and exec. Only async-signal-safe calls here:
// the process that was copied may have had other threads, holding any lock.
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "expand/caller.h"
#include "expand/child_image.h"

namespace Expand {
namespace {

// A line of text that is put together without the formatting functions of the
// library, which may take locks; cut when it is too long.
class Line {
 public:
  Line& operator<<(const char* text) {
    for (; *text != '\0' && size_ < sizeof(text_); ++text) text_[size_++] = *text;
    return *this;
  }

  Line& operator<<(int number) {
    char digits[16];
    char* at = digits + sizeof(digits);
    *--at = '\0';
    const bool negative = number < 0;
    unsigned rest = negative ? 0u - static_cast<unsigned>(number) : static_cast<unsigned>(number);
    do {
      *--at = static_cast<char>('0' + rest % 10);
      rest /= 10;
    } while (rest != 0);
    if (negative) *--at = '-';
    return *this << at;
  }

  void write() const {
    // Standard error may be closed or full: there is nowhere else to complain.
    if (::write(STDERR_FILENO, text_, size_) == -1) return;
  }

 private:
  char text_[8192];
  std::size_t size_ = 0;
};

// As strerror, but without translation, which takes locks.
const char* reason(int error) {
  const char* const text = strerrordesc_np(error);
  return text != nullptr ? text : "Unknown error";
}

// The line that err() writes, and its exit status; but without the exit handlers
// and buffers of the process that was copied, which are none of the child's.
[[noreturn]] void fail(const Line& message, int error) {
  Line line = message;
  (line << ": " << reason(error) << "\n").write();
  _exit(1);
}

Line begin() {
  Line line;
  line << program_invocation_short_name << ": ";
  return line;
}

}  // namespace

void CallerExec::executeProgram_(const ChildImage& image) {
  for (int i = 0; i < 3; ++i) {
    if (connectors_[i] == nullptr) continue;
    const int end = pipes_[i][1];
    close(pipes_[i][0]);
    // The ends are above 2 (see makePipe_), so this never is a descriptor onto
    // itself, which would stay close-on-exec.
    if (dup2(end, i) == -1) {
      const int error = errno;
      fail(begin() << "Can't make dup2(" << end << ", " << i << "): " << reason(error), error);
    }
    close(end);
  }
  for (int i = 0; i < 3; ++i) {
    if (connectors_[i] == nullptr) close(i);
  }
  sigaction(SIGPIPE, &savedPipe_, nullptr);
  sigaction(SIGCHLD, &savedChild_, nullptr);

  if (!intrinsics_.workDir.empty() && chdir(intrinsics_.workDir.c_str()) == -1) {
    const int error = errno;
    fail(begin() << "Can't chdir to " << intrinsics_.workDir.c_str() << ": " << reason(error),
         error);
  }
  // Only now, as a relative search path is relative to the working directory.
  execve(image.program.find(), image.argv.get(), image.envp.get());
  const int error = errno;
  fail(begin() << "Can't execute " << program_.c_str(), error);
}

}  // namespace Expand
