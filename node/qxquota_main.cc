// qxquota runs once for every user and group of a migrated server, so it starts
// with as little as possible: no command line library, no streams.
#include <cstdio>
#include <string>
#include <vector>

#include "host/error.h"
#include "node/quota.h"

namespace {

int exitWith(node::QuotaExit code) { return static_cast<int>(code); }

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments == std::vector<std::string>{"--help"}) {
    fputs(node::quotaUsage().c_str(), stdout);
    return exitWith(node::QuotaExit::kOk);
  }
  try {
    std::string output;
    const node::QuotaExit code = node::runQuotaCommand(node::parseQuotaCommand(arguments), output);
    if (fputs(output.c_str(), stdout) == EOF || fflush(stdout) != 0) {
      perror("qxquota: cannot write the answer");
      return exitWith(node::QuotaExit::kFailed);
    }
    return exitWith(code);
  } catch (const node::Error& error) {
    fprintf(stderr, "qxquota: %s\n", error.what());
    if (error.code() != node::ExitCode::kUsage) return exitWith(node::QuotaExit::kFailed);
    fputs(node::quotaUsage().c_str(), stderr);
    return exitWith(node::QuotaExit::kUsage);
  } catch (const std::exception& error) {
    fprintf(stderr, "qxquota: %s\n", error.what());
    return exitWith(node::QuotaExit::kFailed);
  }
}
