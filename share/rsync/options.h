#ifndef QX_SHARE_RSYNC_OPTIONS_H
#define QX_SHARE_RSYNC_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "share/engine/tracker.h"

namespace qxrsync {

/// What this run of the program is for.
enum class Mode {
  kUntouched,  ///< nothing here is ours: stock rsync gets the arguments as they are
  kClient,     ///< --fdin and --fdout, or --progress-bar
  kServer,     ///< the sender at the far end of a channel
  kJoiner,     ///< this program as the remote shell of the stock rsync it started
  kTracker     ///< this program between two passes of a sender
};

/// The command line, taken apart. arguments never hold the program's name.
struct Options {
  Mode mode = Mode::kUntouched;
  std::vector<std::string> arguments;  ///< for stock rsync, our own options removed

  /// Mode::kClient
  bool progressBar = false;
  std::optional<int> fdIn;   ///< both or neither
  std::optional<int> fdOut;  ///<
  std::string destination;   ///< the local directory that is filled; empty when not found

  /// Mode::kServer
  std::string served;  ///< the path that is sent: the last argument

  /// Mode::kTracker
  engine::TrackerSetup tracker;

  /// Mode::kJoiner
  int handoverFd = -1;       ///< where the channel's descriptors are received
  bool handOver = false;     ///< stock rsync's descriptors, if the far end takes them
  std::string capabilities;  ///< stock rsync's own ("." and letters), for the far end
};

/// The option that makes the program a joiner; the handover descriptor follows.
inline constexpr const char* kJoinOption = "--join-channel";
/// The same, where the other end of the channel may take stock rsync's own
/// descriptors.
inline constexpr const char* kHandOverOption = "--join-or-hand-over-channel";

/// Takes apart what follows the program's name. Throws Failure (status 1) when
/// --fdin or --fdout has no number, or one of them stands without the other.
///
/// A server command line that some stock client made holds that client's
/// capabilities ("e." and letters among the short options); then it is an
/// ordinary remote rsync that is wanted, and the mode is Untouched. Over a
/// channel of ours the capabilities arrive in the handshake instead.
Options parseOptions(const std::vector<std::string>& arguments);

/// Quotes a path for stock rsync's --rsh value, which splits at blanks and
/// takes a doubled quote for one quote.
std::string quoteForShellOption(const std::string& path);

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_OPTIONS_H
