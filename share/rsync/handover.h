#ifndef QX_SHARE_RSYNC_HANDOVER_H
#define QX_SHARE_RSYNC_HANDOVER_H

#include <optional>

#include "host/fd.h"

namespace qxrsync {

// Descriptors that travel between processes of one machine, as a message on a
// UNIX socket (unix(7), SCM_RIGHTS).
//
// The channel's two descriptors go from the client to the joiner, its
// grandchild, so that stock rsync in between never holds them: a channel whose
// end some third process holds would never be seen to end.
//
// The client keeps its end of the socket pair for as long as it lives; the
// joiner takes its closing for the client's death.

struct Channel {
  host::Fd in;
  host::Fd out;
};

/// Whether both descriptors are UNIX sockets, so that descriptors may travel.
/// That they arrive is not said: the peer may be a relay.
bool carriesDescriptors(int in, int out);

/// Sends two descriptors and one byte. They stay open here. Throws Failure.
void sendDescriptors(int socket, int in, int out);

/// Takes the byte that sendDescriptors sent, and what came with it: nothing if
/// there was a byte only. Close-on-exec is set. Throws Failure when the socket
/// was closed or cannot be read.
std::optional<Channel> receiveDescriptors(int socket);

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_HANDOVER_H
