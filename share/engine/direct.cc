#include "share/engine/direct.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "share/engine/direct_frames.h"
#include "share/engine/frame.h"
#include "share/rsync/failure.h"

namespace engine {

namespace {

constexpr std::chrono::seconds kPatience{3};

// The next frame, which must be this one.
void receive(Stream& channel, Kind kind, Buffer& payload) {
  const auto header = FrameReader(channel).read(payload);
  if (!header) throw ProtocolError("the other end of the data channel closed it");
  if (header->kind != kind) throw ProtocolError("the other end sent a frame out of turn");
}

void sendNumber(Stream& channel, Kind kind, std::uint64_t number) {
  Buffer frame = emptyFrame();
  putNumber(frame, number);
  FrameWriter(channel).write(kind, 0, 0, frame);
}

// The key was in it.
void wipe(Buffer& buffer) { ::explicit_bzero(buffer.data(), buffer.capacity()); }

std::uint16_t receivePlace(Stream& channel, Key& key) {
  Buffer payload;
  receive(channel, Kind::kMeeting, payload);
  const std::uint16_t port = takeMeeting(payload.view(), key);
  wipe(payload);
  return port;
}

void sendPlace(Stream& channel, std::uint16_t port, const Key& key) {
  Buffer frame = emptyFrame();
  putMeeting(frame, port, key);
  FrameWriter(channel).write(Kind::kMeeting, 0, 0, frame);
  wipe(frame);
}

}  // namespace

Meeting::Meeting(int channelIn, int channelOut) : in_(channelIn), out_(channelOut) {
  receiveAddress();
  if (address_->isOwn()) listen();
  sendPlace(channel_, port_, key_);
  if (listener_) awaitConnection();
}

void Meeting::receiveAddress() {
  Buffer payload;
  receive(channel_, Kind::kAddress, payload);
  address_ = takeAddress(payload.view());
}

void Meeting::listen() {
  std::uint16_t port = 0;
  if (key_.make()) listener_ = address_->listen(port);
  if (listener_)
    port_ = port;
  else
    problem_ = errno;
}

// The channel has something to be read when the sender has given up.
void Meeting::awaitConnection() {
  const qxrsync::Deadline deadline(kPatience);
  pollfd wanted[] = {{listener_.get(), POLLIN, 0}, {in_, POLLIN, 0}};
  while (::poll(wanted, 2, deadline.left()) < 0 && errno == EINTR) {
  }
  if (wanted[0].revents != 0)
    connection_.reset(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  listener_.reset();
}

std::string Meeting::where() const { return address_->text() + ", port " + std::to_string(port_); }

int Meeting::receiveMet() {
  Buffer payload;
  receive(channel_, Kind::kMet, payload);
  return takeMet(payload.view());
}

// What the sender says of the connection, 0 if it stands at both ends.
int Meeting::agree() {
  if (!connection_) {
    const int theirs = receiveMet();
    return theirs != 0 ? theirs : EPROTO;
  }
  const qxrsync::Deadline deadline(kPatience);
  tls_ = std::make_unique<TlsStream>(std::move(connection_), in_, TlsStream::Role::kListener);
  int mine = tls_->agree(key_, deadline, true);
  if (mine != 0 && mine != EAGAIN) tls_.reset();  // lets the sender know
  const int theirs = receiveMet();
  if (mine == EAGAIN && theirs == 0) mine = tls_->agree(key_, deadline, false);
  return theirs != 0 ? theirs : mine;
}

std::unique_ptr<Stream> Meeting::conclude() {
  if (port_ == 0) {
    qxrsync::inform("the copy goes through ssh, as " +
                    (problem_ == 0 ? address_->text() + ", which the server sees this node as, is "
                                                        "not an address of its own"
                                   : "this node cannot listen at " + address_->text() + " (" +
                                         std::strerror(problem_) + ")"));
    return nullptr;
  }
  const int problem = agree();
  key_.wipe();
  sendNumber(channel_, Kind::kAgreed, problem == 0 ? 1 : 0);
  if (problem == 0) {
    qxrsync::inform("the copy goes directly to " + where() + ", over TLS 1.3");
    return std::move(tls_);
  }
  tls_.reset();
  qxrsync::inform("the copy goes through ssh, as " +
                  (problem == EPROTO ? "no secure connection came about at " + where()
                                     : "the server cannot reach " + where() + " (" +
                                           std::strerror(problem) + ")"));
  return nullptr;
}

std::unique_ptr<Stream> connectDirectly(int channelIn, int channelOut, const IpAddress& address,
                                        int& problem) {
  PlainStream channel(channelIn, channelOut);
  Buffer frame = emptyFrame();
  putText(frame, address.text());
  FrameWriter(channel).write(Kind::kAddress, 0, 0, frame);
  Key key;
  const std::uint16_t port = receivePlace(channel, key);
  if (port == 0) return nullptr;

  const qxrsync::Deadline deadline(kPatience);
  std::unique_ptr<TlsStream> tls;
  host::Fd connection = address.connect(port, deadline);
  problem = connection ? 0 : errno;
  if (connection) {
    tls =
        std::make_unique<TlsStream>(std::move(connection), channelIn, TlsStream::Role::kConnector);
    problem = tls->agree(key, deadline, false);
  }
  if (problem != 0) tls.reset();  // lets the receiver know
  key.wipe();
  sendNumber(channel, Kind::kMet, static_cast<std::uint64_t>(problem));
  Buffer payload;
  receive(channel, Kind::kAgreed, payload);
  if (!takeAgreed(payload.view())) return nullptr;
  if (!tls) throw ProtocolError("the other end wants to go on over a connection that failed");
  return tls;
}

}  // namespace engine
