#include "share/rsync/disk_reserve.h"

#include <sys/statvfs.h>

#include <cstdint>
#include <cstdlib>

#include "host/reserve.h"
#include "host/text.h"
#include "share/rsync/failure.h"

namespace qxrsync {

namespace {

constexpr int kWhole = 100;  // percent
constexpr std::uint64_t kMebibyte = 1 << 20;

// As the plan reckons it.
std::uint64_t reserveOf(std::uint64_t total, int percent) {
  return static_cast<std::uint64_t>(host::reserveOf(static_cast<long long>(total), percent));
}

}  // namespace

DiskReserve DiskReserve::fromEnvironment() {
  const char* text = std::getenv("QX_RSYNC_RESERVE");
  const char* path = std::getenv("QX_RSYNC_RESERVE_OF");
  if (text == nullptr || *text == '\0') return {};
  const std::optional<std::uint64_t> percent = host::parseDecimal(text);
  if (!percent || *percent > kWhole)
    throw Failure(kExitSyntax, std::string("'") + text +
                                   "' in QX_RSYNC_RESERVE is not a percentage from 0 to 100");
  if (path == nullptr || *path != '/')
    throw Failure(kExitSyntax, std::string("'") + (path == nullptr ? "" : path) +
                                   "' in QX_RSYNC_RESERVE_OF is not an absolute path");
  return {path, static_cast<int>(*percent)};
}

std::optional<std::string> DiskReserve::problem() const {
  struct statvfs figures {};
  if (percent_ == 0 || ::statvfs(path_.c_str(), &figures) != 0) return std::nullopt;
  const std::string share = " (" + std::to_string(percent_) + " %)";
  const std::uint64_t blocks = reserveOf(figures.f_blocks, percent_);
  if (figures.f_bavail < blocks) {
    const auto mebibytes = [&](std::uint64_t count) {
      return std::to_string(count * figures.f_frsize / kMebibyte) + " MiB";
    };
    return "the copy was stopped before the disk was full: only " + mebibytes(figures.f_bavail) +
           " are free at '" + path_ + "', and " + mebibytes(blocks) + share + " must stay free";
  }
  // Some file systems make inodes as they need them, and have no number of them.
  const std::uint64_t inodes = reserveOf(figures.f_files, percent_);
  if (figures.f_favail < inodes)
    return "the copy was stopped before the disk ran out of inodes: only " +
           std::to_string(figures.f_favail) + " are free at '" + path_ + "', and " +
           std::to_string(inodes) + share + " must stay free";
  return std::nullopt;
}

}  // namespace qxrsync
