// What qxmigrate shows on a terminal or in a log.
#ifndef QX_AGENT_PROGRAMS_CONSOLE_H
#define QX_AGENT_PROGRAMS_CONSOLE_H

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "agent/programs/copy_meter.h"
#include "agent/programs/migration_view.h"

namespace agent {

/// One line a stage when it ends, lines of text as they come. On a terminal the running
/// stage is shown in place, some times a second: how far a copy is, how fast, how long it
/// will take, and for how long the server's services have been down.
class Console : public MigrationView {
 public:
  explicit Console(bool quiet);
  ~Console() override;
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  void stageBegins(const std::string& stage) override;
  void stageEnds(const std::string& stage, int result, double seconds) override;
  void line(const std::string& text) override;
  void expect(const Outlook& outlook) override;
  void percent(const std::string& description, int percent) override;
  void leftOut(const host::CopyReport& report) override;

 private:
  using Clock = std::chrono::steady_clock;

  // With the mutex held.
  void show(const std::string& text);
  void redraw();
  void clear();

  const bool quiet_;
  const bool terminal_;

  std::mutex mutex_;
  bool shown_ = false;
  bool running_ = false;  ///< a stage is
  std::string stage_;
  std::string text_;     ///< what the stage does
  std::string percent_;  ///< what it says of itself
  std::map<std::string, int> begun_;
  std::optional<CopyMeter> meter_;
  Outlook outlook_;
  std::optional<Clock::time_point> outage_;  ///< since when

  std::condition_variable ended_;
  bool end_ = false;
  std::thread drawing_;
};

}  // namespace agent

#endif
