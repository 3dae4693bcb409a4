#include "agent/wire/server.h"

#include <fcntl.h>
#include <poll.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "agent/system/event.h"
#include "agent/system/last_error.h"
#include "agent/system/socket_address.h"
#include "agent/wire/protocol.h"
#include "framework/logger.h"

namespace agent {

namespace {

QXL::QXLClientContext peerOf(int fd) {
  QXL::QXLClientContext client;
  ucred credentials;
  socklen_t size = sizeof credentials;
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0) {
    client.uid = static_cast<long>(credentials.uid);
    const passwd* entry = getpwuid(credentials.uid);
    client.account = entry ? entry->pw_name : std::to_string(credentials.uid);
  }
  return client;
}

}  // namespace

Peer::Peer(host::Fd input, host::Fd output, const QXL::QXLClientContext& client,
           std::chrono::seconds channelTimeout, const HeartbeatTimes& times)
    : event_(newEvent()),
      connection_(std::move(input), std::move(output), times),
      dispatcher_(connection_, client, channelTimeout) {
  connection_.start(
      [this](const nlohmann::json& frame, std::vector<host::Fd> fds) {
        if (!greeted_) {
          checkHello(frame);
          greeted_ = true;
          connection_.send(hello());
        } else {
          dispatcher_.onFrame(frame, std::move(fds));
        }
      },
      [this](const std::string& reason) {
        if (!reason.empty()) {
          QXL::logMessage(1, "qxagent", "server", "Peer", "a connection ended: %s", reason.c_str());
        }
        dispatcher_.end();
        ended_ = true;
        raiseEvent(event_);
      });
}

// The connection's thread uses the other members.
Peer::~Peer() { connection_.stop(); }

Server::Server(const std::string& path) : path_(path) {
  const sockaddr_un address = socketAddress(path);
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);
  const auto refuse = [&](const std::string& why) {
    throw std::runtime_error("cannot listen on unix:" + path + ": " + why);
  };

  host::Fd probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  listener_.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!probe || !listener_) refuse(errnoText(errno));
  struct stat info;
  if (lstat(path.c_str(), &info) == 0) {
    if (!S_ISSOCK(info.st_mode)) refuse("there is something else");
    if (::connect(probe.get(), generic, sizeof address) == 0) refuse("another agent listens there");
    unlink(path.c_str());
  }
  // Only the agent's own user may connect, until the administrator says otherwise.
  const mode_t mask = umask(0177);
  const int bound = bind(listener_.get(), generic, sizeof address);
  const int number = errno;
  umask(mask);
  if (bound != 0) refuse(errnoText(number));
  if (listen(listener_.get(), 16) != 0) refuse(errnoText(errno));
}

Server::~Server() {
  peers_.clear();
  unlink(path_.c_str());
}

void Server::run(int stopFd) {
  for (;;) {
    std::vector<pollfd> entries = {{stopFd, POLLIN, 0}, {listener_.get(), POLLIN, 0}};
    for (const auto& peer : peers_) entries.push_back({peer->endedFd(), POLLIN, 0});
    if (poll(entries.data(), entries.size(), -1) < 0 && errno != EINTR) return;
    if (entries[0].revents) return;
    if (entries[1].revents) accept();
    peers_.remove_if([](const auto& peer) { return peer->ended(); });
  }
}

void Server::accept() {
  host::Fd fd(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!fd) return;
  host::Fd second(fcntl(fd.get(), F_DUPFD_CLOEXEC, 3));
  if (!second) return;
  const QXL::QXLClientContext client = peerOf(fd.get());
  peers_.push_back(std::make_unique<Peer>(std::move(fd), std::move(second), client));
}

}  // namespace agent
