#include "agent/system/output_of.h"

#include "framework/runner.h"

namespace agent {

std::optional<std::string> outputOf(const std::vector<std::string>& argv, int seconds) {
  constexpr int kMostBytes = 262144;
  std::vector<const char*> pointers;
  for (const std::string& word : argv) pointers.push_back(word.c_str());
  pointers.push_back(nullptr);
  QXL::GenExec runner(kMostBytes);
  if (runner.execWithOnlyError(pointers.data(), QXL::GenExecOutput, seconds) != 0) {
    return std::nullopt;
  }
  return runner.getOutput(QXL::GenExecOutput);
}

}  // namespace agent
