#ifndef QX_SHARE_RSYNC_ERROR_OUTPUT_H
#define QX_SHARE_RSYNC_ERROR_OUTPUT_H

#include <string>

#include "host/descriptors.h"
#include "share/rsync/copy_problems.h"

namespace qxrsync {

/// What the child that copies writes to standard error: it is passed on, and a report of it
/// is written where the environment asks for one (host/copy_report.h). Where it does not,
/// the child has this process's own, and nothing is done here.
class ErrorOutput {
 public:
  /// Removes an earlier copy's report. Throws Failure.
  explicit ErrorOutput(const std::string& destination);
  /// Asked for by nobody.
  ErrorOutput() : problems_("") {}

  /// See CopyProblems. Notes are not passed on.
  void acceptNotes();
  void addNote(const std::string& text) { problems_.addNote(text); }

  /// For the child; -1 for this process's own.
  int childEnd() const { return pipe_.second.get(); }
  /// Once the child has it.
  void letGoOfChildEnd() { pipe_.second.reset(); }

  /// Passes on what has come.
  void pass();
  /// Passes on the rest, after the child's end. `status` as in CopyProblems::report; a copy
  /// that has failed has none.
  void conclude(int status);

 private:
  void passLines(std::string_view bytes);

  std::string path_;  ///< empty: no report
  host::FdPair pipe_;
  CopyProblems problems_;
  bool acceptsNotes_ = false;
  std::string line_;  ///< with notes: the one that has no end yet
};

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_ERROR_OUTPUT_H
