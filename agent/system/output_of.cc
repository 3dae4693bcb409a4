#include "agent/system/output_of.h"

#include "framework/runner.h"
#include "host/process.h"

namespace agent {

std::optional<std::string> outputOf(const std::vector<std::string>& argv, int seconds) {
  constexpr int kMostBytes = 262144;
  QXL::GenExec runner(kMostBytes);
  if (runner.execWithOnlyError(host::pointersTo(argv).data(), QXL::GenExecOutput, seconds) != 0) {
    return std::nullopt;
  }
  return runner.getOutput(QXL::GenExecOutput);
}

}  // namespace agent
