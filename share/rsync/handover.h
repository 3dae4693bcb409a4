#ifndef QX_SHARE_RSYNC_HANDOVER_H
#define QX_SHARE_RSYNC_HANDOVER_H

#include "share/rsync/descriptor.h"

namespace qxrsync {

// The channel's two descriptors go from the client to the joiner, its
// grandchild, as a message on a socket pair, so that stock rsync in between
// never holds them: a channel whose end some third process holds would never be
// seen to end.
//
// The client keeps its end of the socket pair for as long as it lives; the
// joiner takes its closing for the client's death.

struct Channel {
  Descriptor in;
  Descriptor out;
};

/// Sends both descriptors and one byte. They are closed here. Throws Failure.
void sendChannel(int socket, Channel channel);

/// Receives what sendChannel sent; close-on-exec is set. Throws Failure.
Channel receiveChannel(int socket);

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_HANDOVER_H
