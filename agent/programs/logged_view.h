// A migration in the log file, beside what is shown of it.
#ifndef QX_AGENT_PROGRAMS_LOGGED_VIEW_H
#define QX_AGENT_PROGRAMS_LOGGED_VIEW_H

#include <memory>

#include "agent/programs/migration_view.h"

namespace agent {

/// Writes everything to the log (see log_file.h), and passes it on.
class LoggedView : public MigrationView {
 public:
  explicit LoggedView(std::unique_ptr<MigrationView> shown) : shown_(std::move(shown)) {}

  void stageBegins(const std::string& stage) override;
  void stageEnds(const std::string& stage, int result, double seconds) override;
  void line(const std::string& text) override;
  void expect(const Outlook& outlook) override;
  void percent(const std::string& description, int percent) override;
  void leftOut(const host::CopyReport& report) override;

 private:
  const std::unique_ptr<MigrationView> shown_;
};

}  // namespace agent

#endif
