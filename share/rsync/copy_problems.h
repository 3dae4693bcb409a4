#ifndef QX_SHARE_RSYNC_COPY_PROBLEMS_H
#define QX_SHARE_RSYNC_COPY_PROBLEMS_H

#include <string>
#include <string_view>

#include "host/copy_report.h"

namespace qxrsync {

/// Understands what stock rsync, or the engine, writes to standard error: which files of a
/// partial transfer were left out for another reason than that they vanished meanwhile,
/// which is no fault on a live system.
///
/// A status alone does not tell. An attribute that is asked for after its file has vanished
/// makes 23 of 24, and so does every problem of the engine.
class CopyProblems {
 public:
  /// Paths of the destination are told as they are below it.
  explicit CopyProblems(std::string destination);

  /// Lines on how the copy is made count from now on: what writes is the engine, all of
  /// whose lines that the server had a say in begin otherwise.
  void acceptNotes() { acceptsNotes_ = true; }
  /// One of this process's own.
  void addNote(const std::string& text) { report_.addNote(text); }

  /// Takes what was written, in pieces of any size.
  void feed(std::string_view bytes);

  /// After the end, with the status that the copy has ended with: stock rsync's own, so
  /// that vanished files are 24, or the engine's.
  host::CopyReport report(int status);

 private:
  void takeLine(std::string_view line);
  void takeEngines(std::string_view line);
  void takeStock(std::string_view line);
  void add(const std::string& path, const std::string& reason);
  std::string below(std::string_view path) const;

  std::string destination_;
  std::string partial_;      ///< a line that is not whole
  host::CopyReport report_;  ///< what was left out, and the notes
  std::string unknown_;      ///< the first line that is not understood
  bool acceptsNotes_ = false;
  bool lateVanished_ = false;  ///< files that vanished so late that stock rsync says 23
  bool keptDeleted_ = false;   ///< what is gone on the server may still be here
};

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_COPY_PROBLEMS_H
