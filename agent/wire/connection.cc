#include "agent/wire/connection.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <span>
#include <stdexcept>

#include "agent/system/event.h"
#include "agent/system/last_error.h"
#include "host/pass_fds.h"

namespace agent {

namespace {

using Clock = std::chrono::steady_clock;
constexpr size_t kMaxDescriptors = 4;

bool isSocket(int fd) {
  struct stat info;
  return fstat(fd, &info) == 0 && S_ISSOCK(info.st_mode);
}

int millisecondsUntil(Clock::time_point when) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(when - Clock::now());
  return static_cast<int>(std::max<long long>(0, left.count() + 1));
}

}  // namespace

Connection::Connection(host::Fd input, host::Fd output, const HeartbeatTimes& times)
    : input_(std::move(input)),
      output_(std::move(output)),
      isSocket_(isSocket(output_.get())),
      times_(times),
      wake_(newEvent()) {
  for (const int fd : {input_.get(), output_.get()}) {
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
  }
}

Connection::~Connection() { stop(); }

void Connection::stop() {
  close("");
  if (thread_.joinable()) thread_.join();
}

void Connection::start(FrameHandler onFrame, LossHandler onLost) {
  onFrame_ = std::move(onFrame);
  onLost_ = std::move(onLost);
  thread_ = std::thread([this]() { run(); });
}

void Connection::close(const std::string& reason) {
  {
    std::lock_guard lock(reasonMutex_);
    if (closed_) return;
    reason_ = reason;
    closed_ = true;
  }
  raiseEvent(wake_);
}

bool Connection::send(const nlohmann::json& frame, const std::vector<int>& fds) {
  const std::string bytes = encodeFrame(frame);
  std::lock_guard lock(writeMutex_);
  if (closed_) return false;
  sentSinceBeat_ = true;
  return writeAll(bytes, fds);
}

bool Connection::writeAll(const std::string& bytes, const std::vector<int>& fds) {
  const Clock::time_point giveUp = Clock::now() + times_.dead;
  for (size_t written = 0; written < bytes.size();) {
    ssize_t count;
    if (isSocket_) {
      count = host::sendWithFds(output_.get(), std::string_view(bytes).substr(written),
                                written == 0 ? std::span<const int>(fds) : std::span<const int>());
    } else {
      count = write(output_.get(), bytes.data() + written, bytes.size() - written);
    }
    if (count >= 0) {
      written += static_cast<size_t>(count);
      continue;
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN) {
      close(errnoText(errno));
      return false;
    }
    pollfd entries[2] = {{output_.get(), POLLOUT, 0}, {wake_.get(), POLLIN, 0}};
    poll(entries, 2, millisecondsUntil(giveUp));
    if (closed_) return false;
    if (Clock::now() >= giveUp) {
      close("the peer takes no data");
      return false;
    }
  }
  return true;
}

bool Connection::receive() {
  char buffer[65536];
  ssize_t count;
  if (isSocket_) {
    count = host::receiveWithFds(input_.get(), buffer, sizeof buffer, received_);
  } else {
    count = read(input_.get(), buffer, sizeof buffer);
  }
  if (count == 0) return false;
  if (count < 0) {
    if (errno == EAGAIN || errno == EINTR) return true;
    throw std::runtime_error(errnoText(errno));
  }
  decoder_.feed(std::string_view(buffer, static_cast<size_t>(count)));
  while (std::optional<nlohmann::json> frame = decoder_.next()) {
    if ((*frame)["type"] == "beat") continue;
    std::vector<host::Fd> fds;
    if ((*frame)["type"] == "channel") fds = std::exchange(received_, {});
    onFrame_(*frame, std::move(fds));
  }
  // Descriptors that no frame has asked for are not kept.
  if (received_.size() > kMaxDescriptors)
    throw std::runtime_error("the peer sent descriptors without a frame for them");
  return true;
}

void Connection::run() {
  Clock::time_point heard = Clock::now();
  Clock::time_point nextBeat = Clock::now() + times_.beat;
  while (!closed_) {
    pollfd entries[2] = {{input_.get(), POLLIN, 0}, {wake_.get(), POLLIN, 0}};
    poll(entries, 2, millisecondsUntil(std::min(nextBeat, heard + times_.dead)));
    if (closed_) break;
    const Clock::time_point now = Clock::now();
    if (entries[0].revents) {
      heard = now;
      ++timesHeard_;
      try {
        if (!receive()) {
          close("");
          break;
        }
      } catch (const std::exception& problem) {
        close(problem.what());
        break;
      }
    } else if (now >= heard + times_.dead) {
      silent_ = true;
      close("nothing was heard for " +
            std::to_string(std::chrono::duration_cast<std::chrono::seconds>(times_.dead).count()) +
            " seconds");
      break;
    }
    if (now >= nextBeat) {
      if (!sentSinceBeat_.exchange(false)) send({{"type", "beat"}});
      sentSinceBeat_ = false;
      nextBeat = now + times_.beat;
    }
  }
  {
    // Nobody writes any more; the peer sees the end at once.
    std::lock_guard lock(writeMutex_);
    if (isSocket_) shutdown(output_.get(), SHUT_RDWR);
    output_.reset();
  }
  std::string reason;
  {
    std::lock_guard lock(reasonMutex_);
    reason = reason_;
  }
  onLost_(reason);
}

}  // namespace agent
