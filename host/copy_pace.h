// How much of a server's network and processors the copy of its files may take.
#ifndef QX_HOST_COPY_PACE_H
#define QX_HOST_COPY_PACE_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace host {

/// What the end that receives asks of the one that sends.
struct CopyPace {
  uint64_t kibPerSecond = 0;  ///< at most; 0 is no limit
  bool yields = false;        ///< to everything else that wants the processors or the disks

  bool operator==(const CopyPace&) const = default;
};

inline constexpr uint64_t kMostKibPerSecond = uint64_t{1} << 40;

/// The variables of the environment that tell our rsync program: a number of KiB a second,
/// and "1".
inline constexpr char kBandwidthVariable[] = "QX_RSYNC_BWLIMIT";
inline constexpr char kNiceVariable[] = "QX_RSYNC_NICE";

/// "NUMBER", in KiB a second, or with the unit K, M, G behind it, as rsync(1) has it for
/// --bwlimit. In KiB a second; nothing for anything else, and for 0.
std::optional<uint64_t> parseRate(std::string_view text);

/// As the environment says. Throws std::invalid_argument with a text that names the variable
/// and its value.
CopyPace paceFromEnvironment();
/// For whoever reads the environment from now on.
void announcePace(const CopyPace& pace);

/// The lower limit of both, and yielding if one of them does.
CopyPace slowerOf(const CopyPace& one, const CopyPace& other);

/// The calling thread, and what it starts from now on, gets little of the disks, as long as
/// others want them; with `pace.yields` next to nothing of disks and processors
/// (ioprio_set(2), setpriority(2)). What the kernel refuses stays as it is.
void stepBack(const CopyPace& pace);

}  // namespace host

#endif
