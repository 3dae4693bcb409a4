// The last copy of a migration is complete, or it is said what it has left out.
#ifndef QX_AGENT_PROGRAMS_LAST_COPY_H
#define QX_AGENT_PROGRAMS_LAST_COPY_H

#include <string>

#include "agent/programs/migration_view.h"
#include "framework/haul_control.h"
#include "host/copy_report.h"

namespace agent {

/// Where every rsync that this process will run reports what it leaves out, and keeps what it
/// knows of a copy: a file and a folder among the temporary ones, named by the environment as
/// long as this object lives.
class CopyReportFile {
 public:
  /// To be called while there is one thread. Throws std::runtime_error.
  CopyReportFile();
  ~CopyReportFile();
  CopyReportFile(const CopyReportFile&) = delete;
  CopyReportFile& operator=(const CopyReportFile&) = delete;

  std::string path() const { return folder_ + "/copy"; }

 private:
  std::string folder_;
};

/// Looks after the last copy of one migration. The plug-in takes a partial copy for a good
/// one, as files vanish while a live system is read. What else is missing is told here; the
/// copy is made once more, and if it is incomplete still, the migration fails, unless that
/// is accepted.
class LastCopy {
 public:
  /// All must live as long as this object. `handler` is told of the failure.
  LastCopy(QXL::QXLHaulControl& control, QXL::QXLProgressHandlerPrototype& handler,
           MigrationView& view, const CopyRules& rules);

  /// The control's watch (see QXLHaulControl::setWatch).
  int stageEnded(const std::string& stage);

  /// What was left out in the end.
  const host::CopyReport& leftOut() const { return leftOut_; }

 private:
  void look();
  void tellNotes(const host::CopyReport& report);
  int conclude();

  QXL::QXLHaulControl& control_;
  QXL::QXLProgressHandlerPrototype& handler_;
  MigrationView& view_;
  const CopyRules& rules_;
  host::CopyReport leftOut_;
};

/// "2 files are not as they are on the server"
std::string countText(const host::CopyReport& report);

}  // namespace agent

#endif
