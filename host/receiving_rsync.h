// Whether this host's stock rsync can be let near what a stranger sends.
#ifndef QX_HOST_RECEIVING_RSYNC_H
#define QX_HOST_RECEIVING_RSYNC_H

#include <string>

#include "host/shell_vars.h"

namespace host {

/// What speaks against receiving with this rsync.
struct RsyncProblem {
  std::string text;        ///< one line without a full stop; empty when nothing does
  bool tolerable = false;  ///< the administrator may go on with it, and has said so
};

/// The pure half: why a sender could break into this rsync, or nothing.
///
/// version  what `rsync --version` prints
/// package  version of the Debian package that it is from; empty when it is from none
std::string unfixedRsync(const std::string& version, const std::string& package);

/// Asks this host's rsync. OLD_RSYNC="yes" of the settings makes an old one tolerable,
/// a missing one never. Throws Error (kBadConfig) when OLD_RSYNC is neither "yes" nor
/// "no".
RsyncProblem receivingRsyncProblem(const ShellVars& settings);

}  // namespace host

#endif
