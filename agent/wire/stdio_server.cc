#include "agent/wire/stdio_server.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>
#include <vector>

#include "agent/system/event.h"
#include "agent/system/last_error.h"
#include "agent/system/socket_address.h"
#include "agent/wire/server.h"
#include "host/pass_fds.h"
#include "host/product.h"

namespace agent {

namespace {

constexpr size_t kTokenBytes = 32;
constexpr std::chrono::seconds kChannelTimeout(30);

// Takes the token and the two descriptors that one `qxagent channel` hands over.
// Its connection goes with the channel end: whoever inherits the descriptors keeps
// it open, and when the last one closes it that process ends.
void receiveChannel(host::Fd connection, ChannelTable& channels) {
  const timeval timeout{10, 0};
  setsockopt(connection.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  char token[kTokenBytes];
  std::vector<host::Fd> fds;
  const ssize_t count =
      host::receiveWithFds(connection.get(), token, sizeof token, fds, MSG_WAITALL);
  if (count != static_cast<ssize_t>(sizeof token) || fds.size() != 2) return;
  channels.put(std::string(token, sizeof token),
               boost::intrusive_ptr<QXL::QXLChannelEndPrototype>(new LocalChannelEnd(
                   std::move(fds[0]), std::move(fds[1]), std::move(connection))));
}

// Tells the guard (share/guard.sh) that the peer lives: by the time since the machine
// was booted, which nobody sets. Nothing depends on it that must survive a crash.
class HeardFile {
 public:
  void write(unsigned long timesHeard) {
    const std::string folder = host::agentFolder();
    if (folder.empty() || timesHeard == written_) return;
    written_ = timesHeard;
    std::string uptime;
    if (!std::getline(std::ifstream("/proc/uptime"), uptime)) return;
    std::ofstream(folder + "/heard") << uptime.substr(0, uptime.find('.')) << "\n";
  }

 private:
  unsigned long written_ = 0;
};

host::Fd listenForChannels() {
  host::Fd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const sockaddr_un address = socketAddress(channelSocketPath());
  unlink(address.sun_path);
  if (!listener ||
      bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      chmod(address.sun_path, 0600) != 0 || listen(listener.get(), 8) != 0) {
    throw std::runtime_error(std::string(address.sun_path) + ": " + errnoText(errno));
  }
  return listener;
}

}  // namespace

std::string channelSocketPath() { return host::agentFolder() + "/channel.sock"; }

void serveStdio(int stopFd) {
  // The streams are the connection's; nothing else may write or read there.
  host::Fd input(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
  host::Fd output(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3));
  if (!input || !output) throw std::runtime_error("no connection on the standard streams");
  const host::Fd nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
  dup2(nothing.get(), STDIN_FILENO);
  dup2(STDERR_FILENO, STDOUT_FILENO);

  const host::Fd listener = listenForChannels();
  QXL::QXLClientContext client;
  client.uid = static_cast<long>(geteuid());
  const char* account = getenv("SUDO_USER") ? getenv("SUDO_USER") : getenv("LOGNAME");
  client.account = account ? account : std::to_string(client.uid);
  Peer peer(std::move(input), std::move(output), client, kChannelTimeout);
  constexpr int kLookMilliseconds = 5000;
  HeardFile heard;
  while (!peer.ended()) {
    heard.write(peer.timesHeard());
    pollfd entries[3] = {
        {stopFd, POLLIN, 0}, {peer.endedFd(), POLLIN, 0}, {listener.get(), POLLIN, 0}};
    if (poll(entries, 3, kLookMilliseconds) < 0 && errno != EINTR) break;
    if (entries[0].revents) break;
    if (entries[2].revents) {
      host::Fd connection(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
      if (connection) receiveChannel(std::move(connection), peer.channels());
    }
  }
  unlink(channelSocketPath().c_str());
}

int offerChannel(const std::string& token) {
  if (token.size() != kTokenBytes) {
    fprintf(stderr, "qxagent: '%s' is not a channel token\n", token.c_str());
    return 2;
  }
  const sockaddr_un address = socketAddress(channelSocketPath());
  const host::Fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd || connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    fprintf(stderr, "qxagent: no agent listens on %s: %s\n", address.sun_path,
            errnoText(errno).c_str());
    return 1;
  }
  const int streams[2] = {STDIN_FILENO, STDOUT_FILENO};
  if (host::sendWithFds(fd.get(), token, streams) != static_cast<ssize_t>(token.size())) {
    fprintf(stderr, "qxagent: the agent does not take the channel: %s\n", errnoText(errno).c_str());
    return 1;
  }
  // Whoever uses the channel holds the other end of the connection. This process
  // must not hold the streams open beyond that, but ssh ends the session with it.
  close(STDIN_FILENO);
  close(STDOUT_FILENO);
  char byte;
  while (read(fd.get(), &byte, 1) < 0 && errno == EINTR) {
  }
  return 0;
}

}  // namespace agent
