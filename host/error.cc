#include "host/error.h"

#include <array>
#include <cerrno>
#include <cstring>

#include "host/text.h"

namespace host {

std::span<const ExitCodeMeaning> exitCodes() {
  static constexpr std::array<ExitCodeMeaning, 11> kTable{{
      {ExitCode::kOk, "done, or there was nothing to do"},
      {ExitCode::kFailed, "a system call or a command failed"},
      {ExitCode::kUsage, "wrong command line"},
      {ExitCode::kBadConfig, "a configuration file is malformed or names a dangerous path"},
      {ExitCode::kLocked, "another process holds the container's lock"},
      {ExitCode::kNotFound, "no such container, private area, template, script or log"},
      {ExitCode::kExists, "what is to be created exists already"},
      {ExitCode::kNotMounted, "the container is not mounted"},
      {ExitCode::kBusy, "the container is running, or something uses its files"},
      {ExitCode::kNotRegistered, "the container is not registered, so it cannot be started"},
      {ExitCode::kNotRunning, "the container is not running"},
  }};
  return kTable;
}

void fail(ExitCode code, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string text = vtextf(format, arguments);
  va_end(arguments);
  throw Error(code, text);
}

void failErrno(const char* format, ...) {
  const int number = errno;
  va_list arguments;
  va_start(arguments, format);
  std::string text = vtextf(format, arguments);
  va_end(arguments);
  throw Error(ExitCode::kFailed, text + ": " + strerror(number));
}

}  // namespace host
