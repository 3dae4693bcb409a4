// Runs a program with CallerExec for a test and keeps the results.
#ifndef QX_TESTS_EXPAND_RUN_PROGRAM_H
#define QX_TESTS_EXPAND_RUN_PROGRAM_H

#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "expand/caller.h"

struct RunResult {
  std::string out;
  std::string err;
  bool normalExit;
  int exitCode;
  int signal;
};

// With all three connectors and the environment PATH=/usr/bin:/bin.
inline RunResult runShell(const std::string& command, const std::string& input = "",
                          Expand::CallerExec::Intrinsics intrinsics = {},
                          const std::list<std::string>& env = {"PATH=/usr/bin:/bin"}) {
  Expand::CfromStaticBuf in(input.data(), input.size());
  Expand::CtoDynaBuf out(UINT64_MAX, true, -1);
  Expand::CtoDynaBuf err(UINT64_MAX, true, -1);
  std::vector<Expand::Connector*> connectors = {&in, &out, &err};
  Expand::CallerExec runner("/bin/sh", {"-c", command}, env, intrinsics);
  runner.call(connectors);
  return {out.output(), err.output(), runner.normalExit(), runner.exitCode(),
          runner.killingSignal()};
}

#endif  // QX_TESTS_EXPAND_RUN_PROGRAM_H
