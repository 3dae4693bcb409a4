// Programs that a stage runs to their end.
#ifndef QX_MIGRATE_COMMAND_H
#define QX_MIGRATE_COMMAND_H

#include <string>
#include <vector>

#include "migrate/stage.h"

namespace P2V {

/// What the framework's runner is built with and given: how many bytes of each
/// collected stream it keeps, and the seconds a program may run.
constexpr int kRunnerBytes = 16384;
constexpr int kRunnerSeconds = 80000;

/// An argument vector as the runner and messages take it: null-terminated, valid as
/// long as the object and the words live.
class Argv {
 public:
  explicit Argv(const std::vector<std::string>& words);
  const char* const* get() const { return pointers_.data(); }

 private:
  std::vector<const char*> pointers_;
};

/// Wait statuses, as waitpid gives them. A program ended well when no signal ended
/// it and it exited with 0; an rsync also when it exited with 23.
bool endedWell(int status);
bool rsyncEndedWell(int status);

/// Runs a program and returns its wait status; its streams are not looked at.
int runCommand(const std::vector<std::string>& words);

/// Runs a program that must end well. Returns true, or false with the error
/// "Deserializer command '%s' returned a non-successful status: ..." recorded in
/// the stage's context.
bool runOrRecord(Stage& stage, const std::vector<std::string>& words);

}  // namespace P2V

#endif
