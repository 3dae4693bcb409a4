#ifndef QX_SHARE_ENGINE_DIRECT_H
#define QX_SHARE_ENGINE_DIRECT_H

#include <cstdint>
#include <memory>
#include <string>

#include "host/fd.h"
#include "share/engine/ip_address.h"
#include "share/engine/stream.h"
#include "share/engine/tls_stream.h"

namespace engine {

// How two ends that have a channel get a connection of their own, past the programs that
// carry the channel. Both must have said that they want to (share/rsync/handshake.h).
// Then these frames come first:
//
//   sender    Address  the receiver's address, as the sender sees it
//   receiver  Meeting  the port at which it listens there, and a key made for this
//                      connection; 0 and none if it does not
//   sender    Met      0, or the errno value that says why it has no connection
//   receiver  Agreed   1: all that follows goes over the connection; 0: over the channel
//
// After a port of 0 there are no further ones. No end trusts the connection before
// the other one has shown that it has the key, which only the channel carries.

/// The receiver's part, in two steps, between which it may be closed in.
class Meeting {
 public:
  /// Up to a connection, if one comes within three seconds. Throws Failure and
  /// ProtocolError.
  Meeting(int channelIn, int channelOut);

  /// From there on. Needs nothing of this machine but the descriptors. Nothing: the
  /// channel is to be used as ever. Tells people which it is. Throws as above.
  std::unique_ptr<Stream> conclude();

 private:
  void receiveAddress();
  void listen();
  void awaitConnection();
  int agree();
  int receiveMet();
  std::string where() const;

  int in_;
  int out_;
  PlainStream channel_{in_, out_};
  std::optional<IpAddress> address_;
  std::uint16_t port_ = 0;
  int problem_ = 0;  ///< why there is no port: 0 for a foreign address
  Key key_;
  host::Fd listener_;
  host::Fd connection_;
  std::unique_ptr<TlsStream> tls_;
};

/// The sender's part. Nothing: the channel is to be used as ever, and if that is
/// because nothing answers at the address, `problem` is ETIMEDOUT. Throws as above.
std::unique_ptr<Stream> connectDirectly(int channelIn, int channelOut, const IpAddress& address,
                                        int& problem);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_DIRECT_H
