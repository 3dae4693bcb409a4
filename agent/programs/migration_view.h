// What a migration shows, and what is asked of its last copy.
#ifndef QX_AGENT_PROGRAMS_MIGRATION_VIEW_H
#define QX_AGENT_PROGRAMS_MIGRATION_VIEW_H

#include <string>

#include "agent/programs/settled.h"
#include "host/copy_report.h"

namespace agent {

/// What a migration is about to do.
struct Outlook {
  long long bytes = 0;  ///< to copy; 0: not known
  bool outage = false;  ///< services of the server will be stopped
};

/// What a person who watches a migration is shown.
class MigrationView {
 public:
  virtual ~MigrationView() = default;
  virtual void stageBegins(const std::string& stage) = 0;
  virtual void stageEnds(const std::string& stage, int result, double seconds) = 0;
  virtual void line(const std::string& text) = 0;
  /// What is known before the first stage.
  virtual void expect(const Outlook& outlook) = 0;
  virtual void percent(const std::string& description, int percent) = 0;
  /// What the last copy has left out, each time that it has ended; nothing, when it is
  /// complete.
  virtual void leftOut(const host::CopyReport& report) = 0;
};

/// What is asked of the copies (see last_copy.h) and of the container that they make.
struct CopyRules {
  std::string report;          ///< path of what rsync reports; empty: it is not looked at
  std::string ctid;            ///< the container's id, for people
  bool acceptPartial = false;  ///< go on without what could not be copied
  ContainerPlace place = {};   ///< of the container
};

}  // namespace agent

#endif
