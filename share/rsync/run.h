#ifndef QX_SHARE_RSYNC_RUN_H
#define QX_SHARE_RSYNC_RUN_H

#include "share/rsync/options.h"

namespace qxrsync {

// The three things this program does itself. Each runs to the end and returns
// the exit status; each throws Failure.

/// Fills a directory from the far end of a channel (or, without --fdin, does
/// what was asked) by running stock rsync, with the progress bar if wanted.
int runClient(const Options& options);

/// Sends a directory over standard input and output by running stock rsync.
int runServer(const Options& options);

/// Stock rsync's remote shell, as far as it can tell: joins its standard input
/// and output to the channel received on the handover descriptor.
///
/// It ends when the server closes the channel, when stock rsync takes no more,
/// or when the client died; never later, as stock rsync waits for its remote
/// shell before it ends itself.
int runJoiner(const Options& options);

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_RUN_H
