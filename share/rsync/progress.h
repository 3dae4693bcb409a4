#ifndef QX_SHARE_RSYNC_PROGRESS_H
#define QX_SHARE_RSYNC_PROGRESS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qxrsync {

/// One line of stock rsync's --info=progress2 --no-human-readable:
/// "     52000   0%   18.34MB/s    0:00:00 (xfr#1, ir-chk=1109/1141)".
struct Progress {
  std::uint64_t bytes = 0;
  int percent = 0;
  bool listing = false;  ///< ir-chk: more files are still being found
  bool operator==(const Progress&) const = default;
};

/// Nothing if the line is something else.
std::optional<Progress> parseProgress(std::string_view line);

/// "<bytes>  45% |#########           |", without a line end. The percentage is
/// kept within 0 to 100.
std::string renderBar(std::uint64_t bytes, int percent);

/// Turns stock rsync's standard output into ours: of the progress lines only
/// the latest is kept, as a bar; all other lines pass.
///
/// Stock rsync lists files only a little ahead of copying them, and its
/// percentage is of what it has listed so far: in the middle of a large system
/// it says 95% for hours. While it is still listing, the sender's bytes in use
/// are taken for the whole, unless stock rsync's own percentage is lower; from
/// the end of the list on, its percentage stands.
class ProgressBar {
 public:
  /// usedBytes as in Offer; 0 when unknown, then stock's percentage always stands.
  explicit ProgressBar(std::uint64_t usedBytes) : usedBytes_(usedBytes) {}

  /// Takes a piece of stock rsync's output, cut anywhere. Returns the complete
  /// lines in it that are not progress, each with its line end.
  std::string feed(std::string_view piece);

  /// The bar as it now is, if it changed since the last call.
  std::optional<std::string> changedBar();

  /// What is to be written when stock rsync has ended: a last bar with a line
  /// end (at 100% if everything went well), or nothing if there was no bar; and
  /// before it an unfinished line, if the output broke off within one.
  std::string finish(bool complete);

 private:
  int shownPercent(const Progress& progress) const;
  std::string takeLine(std::string_view line, char end);

  std::uint64_t usedBytes_;
  std::string partial_;
  std::optional<Progress> latest_;
  std::string shown_;
};

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_PROGRESS_H
