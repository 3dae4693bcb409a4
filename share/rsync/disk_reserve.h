#ifndef QX_SHARE_RSYNC_DISK_RESERVE_H
#define QX_SHARE_RSYNC_DISK_RESERVE_H

#include <optional>
#include <string>

namespace qxrsync {

/// The part of a disk that no copy may take, looked after while one is made.
///
/// QX_RSYNC_RESERVE in the environment is the number of percent of the blocks and of
/// the inodes, from 0 to 100, QX_RSYNC_RESERVE_OF a path on the disk, which need not be
/// that of the destination: an image may lie there. Without the first there is no
/// reserve.
class DiskReserve {
 public:
  /// Throws Failure (status 1) when the environment holds nonsense.
  static DiskReserve fromEnvironment();

  DiskReserve() = default;
  DiskReserve(std::string path, int percent) : path_(std::move(path)), percent_(percent) {}

  /// What has been taken of the reserve, as a line for people; nothing as long as it is
  /// whole, or when the disk cannot be asked.
  std::optional<std::string> problem() const;

 private:
  std::string path_;
  int percent_ = 0;
};

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_DISK_RESERVE_H
