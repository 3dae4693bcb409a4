// What qxmigrate shows on a terminal or in a log.
#ifndef QX_AGENT_CONSOLE_H
#define QX_AGENT_CONSOLE_H

#include <string>

#include "agent/migration.h"

namespace agent {

// One line a stage when it ends, lines of text as they come. On a terminal the
// running stage and its percent are shown in place.
class Console : public MigrationView {
 public:
  explicit Console(bool quiet);

  void stageBegins(const std::string& stage) override;
  void stageEnds(const std::string& stage, int result, double seconds) override;
  void line(const std::string& text) override;
  void percent(const std::string& description, int percent) override;

 private:
  void clear();

  bool quiet_;
  bool terminal_;
  bool shown_ = false;
  std::string stage_;
};

}  // namespace agent

#endif
