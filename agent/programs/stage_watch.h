// What is known of the stage that runs.
#ifndef QX_AGENT_PROGRAMS_STAGE_WATCH_H
#define QX_AGENT_PROGRAMS_STAGE_WATCH_H

#include <chrono>
#include <optional>
#include <string>

#include "agent/programs/copy_meter.h"
#include "agent/programs/migration_view.h"
#include "agent/programs/progress_line.h"
#include "agent/wire/steps.h"

namespace agent {

/// Follows the stages of a migration for a view. Not for several threads.
class StageWatch {
 public:
  void expect(const Outlook& outlook) { outlook_ = outlook; }
  void begins(const std::string& stage);
  /// Returns what the stage does, for people.
  std::string ends(const std::string& stage);
  /// What the stage says of itself.
  void says(const std::string& percent) { percent_ = percent; }

  /// Looks how far it is; nothing between two stages.
  std::optional<Progress> look();

 private:
  using Clock = std::chrono::steady_clock;

  Outlook outlook_;
  bool running_ = false;
  std::string stage_;
  StepTexts texts_;
  std::string text_;  ///< what it does
  std::string percent_;
  std::optional<CopyMeter> meter_;
  std::optional<Clock::time_point> outage_;  ///< since when
};

}  // namespace agent

#endif
