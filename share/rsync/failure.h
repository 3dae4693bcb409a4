#ifndef QX_SHARE_RSYNC_FAILURE_H
#define QX_SHARE_RSYNC_FAILURE_H

#include <stdexcept>
#include <string>
#include <string_view>

namespace qxrsync {

/// Exit statuses this program chooses itself; the numbers are stock rsync's, so
/// that a caller needs one table only.
inline constexpr int kExitSyntax = 1;         ///< bad options
inline constexpr int kExitFileSelection = 3;  ///< no destination
inline constexpr int kExitFileIo = 11;        ///< the destination takes no more
inline constexpr int kExitProtocol = 12;      ///< the channel or its other end is no good
inline constexpr int kExitSystem = 14;        ///< a process or descriptor could not be made
inline constexpr int kExitSignal = 20;        ///< told to stop
inline constexpr int kExitPartial = 23;       ///< some files were not carried over
inline constexpr int kExitVanished = 24;      ///< stock rsync's own status for vanished files

/// The run cannot go on: what() is one line for standard error without the
/// program's name, status() what the process exits with.
class Failure : public std::runtime_error {
 public:
  Failure(int status, const std::string& text) : std::runtime_error(text), status_(status) {}
  int status() const { return status_; }

 private:
  int status_;
};

/// Writes a line to standard error, with the program's name.
void complain(const std::string& text);

/// Writes a line on how the copy is made to standard error, where the process that writes a
/// report of the copy (host/copy_report.h) takes it out. Without a report nothing is written.
void inform(const std::string& text);
inline constexpr std::string_view kNotePrefix = "rsync note: ";

/// A Failure that ends with the text of errno, taken at the time of the call.
Failure systemFailure(int status, const std::string& what);

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_FAILURE_H
