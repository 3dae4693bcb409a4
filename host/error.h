// How the node's tools fail: one exception, one table of exit codes.
#ifndef QX_HOST_ERROR_H
#define QX_HOST_ERROR_H

#include <span>
#include <stdexcept>
#include <string>

namespace host {

/// Exit codes of qxctl, mkqxfs and qxpkg. qxquota has a table of its own
/// (node/quota.h), because its codes also carry an answer.
enum class ExitCode {
  kOk = 0,
  kFailed = 1,
  kUsage = 2,
  kBadConfig = 3,
  kLocked = 9,
  kNotFound = 14,
  kExists = 15,
  kNotMounted = 16,
  kBusy = 17,
  kNotRegistered = 18,
  kNotRunning = 19,
};

struct ExitCodeMeaning {
  ExitCode code;
  const char* meaning;
};

/// Every exit code with its meaning, in ascending order: what --help prints.
std::span<const ExitCodeMeaning> exitCodes();

/// A failure to be shown to the user: the text says what failed and why, the
/// code is what the tool exits with. No text ends with a full stop or newline.
class Error : public std::runtime_error {
 public:
  Error(ExitCode code, const std::string& text) : std::runtime_error(text), code_(code) {}
  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

/// Throws an Error with the given code and printf text.
[[noreturn]] void fail(ExitCode code, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

/// Throws an Error with code kFailed, whose text is the printf text, ": " and
/// the text of errno as it was at the call.
[[noreturn]] void failErrno(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace host

#endif
