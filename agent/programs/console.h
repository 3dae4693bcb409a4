// What qxmigrate shows on a terminal or in a log.
#ifndef QX_AGENT_PROGRAMS_CONSOLE_H
#define QX_AGENT_PROGRAMS_CONSOLE_H

#include <mutex>
#include <optional>
#include <string>

#include "agent/programs/migration_view.h"
#include "agent/programs/stage_watch.h"
#include "agent/programs/ticker.h"

namespace agent {

/// One line a stage when it ends, lines of text as they come. On a terminal the running
/// stage is shown in place, some times a second: how far a copy is, how fast, how long it
/// will take, and for how long the server's services have been down.
class Console : public MigrationView {
 public:
  explicit Console(bool quiet);

  void stageBegins(const std::string& stage) override;
  void stageEnds(const std::string& stage, int result, double seconds) override;
  void line(const std::string& text) override;
  void expect(const Outlook& outlook) override;
  void percent(const std::string& description, int percent) override;
  void leftOut(const host::CopyReport& report) override;

 private:
  // With the mutex held.
  void show(const std::string& text);
  void redraw();
  void clear();

  const bool quiet_;
  const bool terminal_;
  std::mutex mutex_;
  StageWatch watch_;
  bool shown_ = false;
  std::optional<Ticker> drawing_;  // the last: it uses the others
};

}  // namespace agent

#endif
