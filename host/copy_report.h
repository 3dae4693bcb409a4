// What a copy of files has left out, and how it was made: rsync writes it, and whoever had it
// run reads it.
#ifndef QX_HOST_COPY_REPORT_H
#define QX_HOST_COPY_REPORT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace host {

/// The variable of the environment that names the file which our rsync program, receiving
/// over a channel, writes when a copy has ended with status 0 or 23. What was there before
/// is removed when the copy begins.
inline constexpr char kCopyReportVariable[] = "QX_RSYNC_REPORT";

/// The variable that names a folder in which that program keeps what it knows of the copy until
/// the next one. It may write there when it is closed in, so nothing else belongs there.
inline constexpr char kCopyFolderVariable[] = "QX_RSYNC_FOLDER";

/// Bounds of a report: what is beyond them is only counted.
inline constexpr size_t kMaxNotCopied = 1000;
inline constexpr size_t kMaxReportBytes = 256 << 10;
inline constexpr size_t kMaxCopyNotes = 20;

struct NotCopied {
  std::string path;    ///< as the server has it; empty where rsync named none
  std::string reason;  ///< such as "cannot be read on the server: Input/output error"
};

/// "PATH: REASON", fit for a terminal, or the reason alone.
std::string textOf(const NotCopied& file);

struct CopyReport {
  uint64_t count = 0;              ///< of what was left out, listed or not
  std::vector<NotCopied> files;    ///< the first ones
  std::vector<std::string> notes;  ///< how the copy was made, for people

  /// Nothing but files that vanished while they were read is missing.
  bool isComplete() const { return count == 0; }
  /// Counts it, and lists it within the bounds. Made harmless to show.
  void add(const std::string& path, const std::string& reason);
  /// A line on how the copy was made; more than a few are dropped. Made harmless to show.
  void addNote(const std::string& text);
};

/// The text of the file: the count, a line for each listed file, and one for each note.
std::string formatCopyReport(const CopyReport& report);

/// Reads such a text. Throws Error (kBadConfig) for any other.
CopyReport parseCopyReport(std::string_view text);

}  // namespace host

#endif
