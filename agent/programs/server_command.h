// What the commands that talk to a server have in common.
#ifndef QX_AGENT_PROGRAMS_SERVER_COMMAND_H
#define QX_AGENT_PROGRAMS_SERVER_COMMAND_H

#include <functional>
#include <memory>
#include <string>

#include "agent/plan/measurement.h"
#include "agent/programs/migrate_options.h"
#include "agent/programs/migration.h"
#include "agent/programs/paint.h"
#include "agent/system/cancel.h"
#include "framework/haul_control.h"

namespace CLI {
class App;
}

namespace agent {

/// How the server is reached.
struct ServerOptions {
  QXL::QXLConnectionInfo source;
  std::string library;
  int verbosity = 0;
  Painting painting = Painting::kAuto;
  std::string logFile;  ///< empty: none
};

/// Each adds its options to a command. Those must live as long as `app`.
void describeServer(CLI::App& app, ServerOptions& options);
void describeOutput(CLI::App& app, ServerOptions& options);
void describeMeasuring(CLI::App& app, MeasureSettings& settings);
void describeContainer(CLI::App& app, MigrateOptions& options);

/// Under which the options of describeOutput stand.
inline constexpr char kOutputHeading[] = "What is shown";

/// Shows the options that are added to `app` while it lives under a heading of the help.
class HelpHeading {
 public:
  HelpHeading(CLI::App& app, const char* text);
  ~HelpHeading();
  HelpHeading(const HelpHeading&) = delete;
  HelpHeading& operator=(const HelpHeading&) = delete;

 private:
  CLI::App& app_;
  const char* text_;
  size_t before_;
};

/// Whether parameters can be made of the options; says what is wrong on standard error if
/// not. A missing distribution is not wrong where the server will be asked for it.
bool areUsable(MigrateOptions options, bool serverIsAsked);

using ServerWork = std::function<int(MigrationView& view, const std::shared_ptr<CancelToken>&)>;

/// What is shown meanwhile: nothing, text for people, or lines of JSON.
enum class Shown { kNothing, kText, kJson };

/// Runs `work` with the plug-in loaded and stop signals cancelling it, and returns what it
/// returns; kExitCancelled when it throws because of that, `failed` when it throws for
/// another reason, which is printed.
int withServer(const ServerOptions& options, Shown shown, int failed, const ServerWork& work);

}  // namespace agent

#endif
