#ifndef QX_SHARE_RSYNC_ENGINE_ENDS_H
#define QX_SHARE_RSYNC_ENGINE_ENDS_H

#include <memory>
#include <optional>
#include <string>

#include "share/engine/direct.h"
#include "share/rsync/engine_choice.h"
#include "share/rsync/handover.h"
#include "share/rsync/handshake.h"

namespace qxrsync {

/// Where the receiver keeps which manifest tells what there is: of no use after a
/// restart of the machine. The environment may name it (host/copy_report.h).
std::string receiverFolder();

// The engine at either end of a channel on which both have agreed to it. Both
// return the exit status and throw Failure.

/// Fills the destination, with the progress bar if wanted, over the connection of the
/// meeting, if there is one, or else the channel. On a signal that ends or stops a run,
/// files that are not whole are removed and the process ends with status 20. What cannot
/// be done is written to standard error.
int fillByEngine(const EngineTask& task, Channel& channel, std::optional<engine::Meeting>& meeting,
                 const Offer& agreed, bool progressBar);

/// Sends what is served over standard input and output, or a connection to the node
/// where both ends have agreed to one.
int serveByEngine(const std::string& served, const Offer& agreed,
                  const std::optional<engine::IpAddress>& node);

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_ENGINE_ENDS_H
