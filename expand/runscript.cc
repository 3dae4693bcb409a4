#include "expand/runscript.h"

#include <unistd.h>

#include <cstdint>
#include <list>
#include <utility>
#include <vector>

#include "expand/caller.h"

namespace Expand {

int runscript(std::string command, std::string& out, std::string& err) {
  std::list<std::string> env;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    env.push_back(*entry);
  }
  CtoDynaBuf outBuf(UINT64_MAX, true, -1);
  CtoDynaBuf errBuf(UINT64_MAX, true, -1);
  std::vector<Connector*> connectors = {nullptr, &outBuf, &errBuf};
  CallerExec shell("sh", {"-c", std::move(command)}, env, {});
  shell.call(connectors);
  out = outBuf.output();
  err = errBuf.output();
  return shell.exitCode();
}

}  // namespace Expand
