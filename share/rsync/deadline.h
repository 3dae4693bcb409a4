#ifndef QX_SHARE_RSYNC_DEADLINE_H
#define QX_SHARE_RSYNC_DEADLINE_H

#include <chrono>

namespace qxrsync {

/// A stretch of time that reading or writing may take in all.
class Deadline {
 public:
  explicit Deadline(std::chrono::milliseconds span)
      : end_(std::chrono::steady_clock::now() + span) {}
  /// What is left, in milliseconds, for poll; never negative.
  int left() const;

 private:
  std::chrono::steady_clock::time_point end_;
};

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_DEADLINE_H
