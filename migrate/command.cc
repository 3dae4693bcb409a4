#include "migrate/command.h"

#include "expand/strings.h"
#include "framework/runner.h"

namespace P2V {

namespace {

// rsync's "partial transfer due to error".
constexpr int kRsyncPartial = 23;

bool wasSignalled(int status) { return (status & 127) != 0; }
int exitCode(int status) { return (status >> 8) & 255; }

}  // namespace

Argv::Argv(const std::vector<std::string>& words) {
  for (const std::string& word : words) pointers_.push_back(word.c_str());
  pointers_.push_back(nullptr);
}

bool endedWell(int status) { return !wasSignalled(status) && exitCode(status) == 0; }

bool rsyncEndedWell(int status) {
  // On a live system files vanish or cannot be read while they are copied. That
  // must not fail a migration, so the partial transfer counts as a good one.
  return !wasSignalled(status) && (exitCode(status) == 0 || exitCode(status) == kRsyncPartial);
}

int runCommand(const std::vector<std::string>& words) {
  QXL::GenExec runner(kRunnerBytes);
  return runner.execWithOnlyError(Argv(words).get(), 0, kRunnerSeconds);
}

bool runOrRecord(Stage& stage, const std::vector<std::string>& words) {
  const Argv argv(words);
  QXL::GenExec runner(kRunnerBytes);
  const int status = runner.execWithOnlyError(argv.get(), 0, kRunnerSeconds);
  if (endedWell(status)) return true;
  stage.context()->fsetLastError(-1,
                                 "Deserializer command '%s' returned a non-successful status: %d. "
                                 "Program error output follows:\n%s",
                                 Expand::join_argv(argv.get()).c_str(), status,
                                 runner.getOutput(QXL::GenExecError).c_str());
  return false;
}

}  // namespace P2V
