// The progress of an rsync run, as its progress bar shows it.
#ifndef QX_MIGRATE_PROGRESS_H
#define QX_MIGRATE_PROGRESS_H

#include <ctime>
#include <optional>

namespace P2V {

/// The percent that a progress line shows: a word, an integer, "%", a blank and "|".
/// Nothing for any other line.
std::optional<int> scanProgressLine(const char* line);

/// Lets through a changed percent at most once in 20 seconds, so that a transfer of
/// millions of files does not flood the caller. Not guarded against threads.
class ProgressThrottle {
 public:
  /// The percent to report after this line, seen at `now` (seconds since the
  /// epoch), or nothing. Within 20 seconds of the last one let through the line is
  /// not even looked at; a clock that went back lets it through. 0 percent counts
  /// as let through but is not reported.
  std::optional<int> accept(const char* line, std::time_t now);

 private:
  std::time_t lastTime_ = 0;
  int lastPercent_ = 0;
};

}  // namespace P2V

#endif
