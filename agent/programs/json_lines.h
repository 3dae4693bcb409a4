// A migration for programs: one JSON object per line, as docs/progress.md describes.
#ifndef QX_AGENT_PROGRAMS_JSON_LINES_H
#define QX_AGENT_PROGRAMS_JSON_LINES_H

#include <mutex>
#include <optional>

#include "agent/plan/plan.h"
#include "agent/plan/plan_facts.h"
#include "agent/programs/migration.h"
#include "agent/programs/stage_watch.h"
#include "agent/programs/ticker.h"
#include "agent/verify/comparison.h"

namespace agent {

/// What docs/progress.md describes; it grows when what is there is changed, not when
/// something is added.
inline constexpr int kJsonLinesFormat = 1;

/// Writes a line to standard output for each thing that happens, and one each second while
/// files are copied or services are down.
class JsonLines : public MigrationView {
 public:
  JsonLines();

  void stageBegins(const std::string& stage) override;
  void stageEnds(const std::string& stage, int result, double seconds) override;
  void line(const std::string& text) override;
  void expect(const Outlook& outlook) override;
  void percent(const std::string& description, int percent) override;
  void leftOut(const host::CopyReport& report) override;

 private:
  void tellProgress();

  std::mutex mutex_;
  StageWatch watch_;
  std::optional<Ticker> telling_;  // the last: it uses the others
};

/// A line each, for what is not of a view. The last line of all is that of the end, with the
/// exit status; `result` is null when the migration was not begun.
void tellJsonPlan(const PlanFacts& facts, const Plan& plan);
void tellJsonVerified(const TreeComparison& found);
void tellJsonEnd(long long ctid, int status, const MigrationResult* result);

}  // namespace agent

#endif
