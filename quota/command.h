// Running the quota tools and recording what went wrong.
#ifndef QX_QUOTA_COMMAND_H
#define QX_QUOTA_COMMAND_H

#include <string>

namespace QuotaMgmt {

/// Records the printf-formatted text as the error of the request that the calling
/// thread serves, and returns -1, so that a failing function can return it.
int fail(const char* format, ...) __attribute__((format(printf, 1, 2)));

struct CommandResult {
  int exitCode = -1;  ///< -1 for a command that a signal ended
  std::string output;
  std::string errorOutput;
};

/// Runs a shell command to its end. Returns 0 whatever its exit code is, or -1 with
/// the request's error set when it could not be run at all.
int runCommand(const std::string& command, CommandResult& result);

/// Records that a command failed ("Error running '%s':\n%s") and returns -1.
int failCommand(const std::string& command, const CommandResult& result);

/// Runs a command that must exit with 0. Returns 0, or -1 with the error set. Its
/// output is appended to `output` unless that is null.
int runChecked(const std::string& command, std::string* output);

}  // namespace QuotaMgmt

#endif
