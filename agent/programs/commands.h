// The commands of qxmigrate.
#ifndef QX_AGENT_PROGRAMS_COMMANDS_H
#define QX_AGENT_PROGRAMS_COMMANDS_H

#include <functional>

namespace CLI {
class App;
}

namespace agent {

/// Exit statuses that several commands have.
inline constexpr int kExitFailed = 1;
inline constexpr int kExitBlocked = 2;
inline constexpr int kExitUnconfirmed = 3;
inline constexpr int kExitUsage = 64;
inline constexpr int kExitCancelled = 130;

/// What a command does once the command line is parsed. Returns the exit status; throws
/// CLI::ParseError where the options do not fit together, before anything is done.
using Run = std::function<int()>;

/// Each adds a command's options to its part of the command line. `app` and what is
/// returned share them.
Run describeMigrate(CLI::App& app);
Run describePlan(CLI::App& app);
Run describeMeasure(CLI::App& app);
Run describeList(CLI::App& app);
Run describeShow(CLI::App& app);
Run describeClean(CLI::App& app);
Run describeVerify(CLI::App& app);

}  // namespace agent

#endif
