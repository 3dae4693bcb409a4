// What qxmigrate shows on a terminal or in a log.
#ifndef QX_AGENT_PROGRAMS_CONSOLE_H
#define QX_AGENT_PROGRAMS_CONSOLE_H

#include <map>
#include <string>

#include "agent/programs/migration.h"

namespace agent {

/// One line a stage when it ends, lines of text as they come. On a terminal the
/// running stage and its percent are shown in place.
class Console : public MigrationView {
 public:
  explicit Console(bool quiet);

  void stageBegins(const std::string& stage) override;
  void stageEnds(const std::string& stage, int result, double seconds) override;
  void line(const std::string& text) override;
  void percent(const std::string& description, int percent) override;
  void leftOut(const host::CopyReport& report) override;

 private:
  void clear();

  bool quiet_;
  bool terminal_;
  bool shown_ = false;
  std::string stage_;
  std::string text_;  ///< what the stage does
  std::map<std::string, int> begun_;
};

}  // namespace agent

#endif
