#include "agent/wire/connection.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <condition_variable>
#include <nlohmann/json.hpp>

namespace {

using namespace std::chrono_literals;
using nlohmann::json;

// One end of a connection that remembers what comes.
class End {
 public:
  End(host::Fd input, host::Fd output, const agent::HeartbeatTimes& times)
      : connection_(std::move(input), std::move(output), times) {
    connection_.start(
        [this](const json& frame, std::vector<host::Fd> fds) {
          std::lock_guard lock(mutex_);
          frames_.push_back(frame);
          for (auto& fd : fds) fds_.push_back(std::move(fd));
          changed_.notify_all();
        },
        [this](const std::string& reason) {
          std::lock_guard lock(mutex_);
          lost_ = true;
          reason_ = reason;
          changed_.notify_all();
        });
  }
  ~End() { connection_.stop(); }

  bool waitFrames(size_t count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, 20s, [&]() { return frames_.size() >= count; });
  }
  bool waitLost() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, 20s, [&]() { return lost_; });
  }
  bool lost() {
    std::lock_guard lock(mutex_);
    return lost_;
  }

  std::vector<json> frames_;
  std::vector<host::Fd> fds_;
  std::string reason_;
  agent::Connection connection_;

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool lost_ = false;
};

host::Fd duplicate(int fd) { return host::Fd(fcntl(fd, F_DUPFD_CLOEXEC, 3)); }

struct Sockets {
  Sockets() {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    first.reset(ends[0]);
    second.reset(ends[1]);
  }
  std::unique_ptr<End> end(host::Fd& fd, const agent::HeartbeatTimes& times = {}) {
    host::Fd output = duplicate(fd.get());
    return std::make_unique<End>(std::move(fd), std::move(output), times);
  }
  host::Fd first, second;
};

TEST(Connection, FramesGoBothWays) {
  Sockets sockets;
  const auto first = sockets.end(sockets.first);
  const auto second = sockets.end(sockets.second);
  EXPECT_TRUE(first->connection_.send({{"type", "a"}}));
  const std::string large(3000000, 'x');
  first->connection_.expectFramesOf(agent::kMaxFrameBytes);
  EXPECT_TRUE(second->connection_.send({{"type", "b"}, {"text", large}}));
  ASSERT_TRUE(second->waitFrames(1));
  ASSERT_TRUE(first->waitFrames(1));
  EXPECT_EQ(first->frames_[0]["text"], large);
}

TEST(Connection, WorksOverPipes) {
  int forth[2], back[2];
  ASSERT_EQ(pipe2(forth, O_CLOEXEC), 0);
  ASSERT_EQ(pipe2(back, O_CLOEXEC), 0);
  End first(host::Fd{back[0]}, host::Fd{forth[1]}, {});
  End second(host::Fd{forth[0]}, host::Fd{back[1]}, {});
  EXPECT_TRUE(first.connection_.send({{"type", "a"}}));
  ASSERT_TRUE(second.waitFrames(1));
  first.connection_.close("");
  EXPECT_TRUE(second.waitLost());
  EXPECT_EQ(second.reason_, "");
}

TEST(Connection, DescriptorsTravelWithTheirFrame) {
  Sockets sockets;
  const auto first = sockets.end(sockets.first);
  const auto second = sockets.end(sockets.second);
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const host::Fd readEnd(ends[0]), writeEnd(ends[1]);
  EXPECT_TRUE(first->connection_.send({{"type", "x"}}));
  EXPECT_TRUE(first->connection_.send({{"type", "channel"}}, {readEnd.get(), writeEnd.get()}));
  ASSERT_TRUE(second->waitFrames(2));
  ASSERT_EQ(second->fds_.size(), 2u);
  ASSERT_EQ(write(second->fds_[1].get(), "hi", 2), 2);
  char buffer[4];
  EXPECT_EQ(read(readEnd.get(), buffer, sizeof buffer), 2);
  EXPECT_TRUE(fcntl(second->fds_[0].get(), F_GETFD) & FD_CLOEXEC);
}

TEST(Connection, APeerThatLeavesIsNoticedAtOnce) {
  Sockets sockets;
  const auto first = sockets.end(sockets.first);
  sockets.second.reset();
  ASSERT_TRUE(first->waitLost());
  EXPECT_EQ(first->reason_, "");
  EXPECT_FALSE(first->connection_.send({{"type", "a"}}));
}

TEST(Connection, ASilentPeerIsDead) {
  Sockets sockets;
  agent::HeartbeatTimes times;
  times.beat = 50ms;
  times.dead = 1000ms;
  const auto first = sockets.end(sockets.first, times);
  ASSERT_TRUE(first->waitLost());
  EXPECT_EQ(first->reason_, "nothing was heard for 1 seconds");
}

TEST(Connection, HeartbeatsKeepAQuietConnectionAlive) {
  Sockets sockets;
  agent::HeartbeatTimes times;
  times.beat = 50ms;
  times.dead = 1000ms;
  const auto first = sockets.end(sockets.first, times);
  const auto second = sockets.end(sockets.second, times);
  std::this_thread::sleep_for(2500ms);
  EXPECT_FALSE(first->lost());
  EXPECT_FALSE(second->lost());
  EXPECT_TRUE(second->frames_.empty());
}

TEST(Connection, APeerThatTakesNothingIsDead) {
  Sockets sockets;
  agent::HeartbeatTimes times;
  times.dead = 500ms;
  const auto first = sockets.end(sockets.first, times);
  EXPECT_FALSE(first->connection_.send({{"type", "a"}, {"text", std::string(8000000, 'x')}}));
  EXPECT_TRUE(first->waitLost());
}

TEST(Connection, GarbageEndsTheConnectionWithAReason) {
  Sockets sockets;
  const auto first = sockets.end(sockets.first);
  ASSERT_EQ(write(sockets.second.get(), "GET / HTTP/1.0\r\n\r\n", 18), 18);
  ASSERT_TRUE(first->waitLost());
  EXPECT_EQ(first->reason_, "a frame of 1195725856 bytes is announced, the most is 1048576");
  char byte;
  EXPECT_EQ(read(sockets.second.get(), &byte, 1), 0);
}

TEST(Connection, AHandlersRefusalEndsTheConnectionWithItsText) {
  Sockets sockets;
  host::Fd output = duplicate(sockets.first.get());
  agent::Connection connection(std::move(sockets.first), std::move(output));
  std::string reason;
  std::mutex mutex;
  std::condition_variable changed;
  bool lost = false;
  connection.start(
      [](const json&, std::vector<host::Fd>) { throw std::runtime_error("not wanted"); },
      [&](const std::string& why) {
        std::lock_guard lock(mutex);
        reason = why;
        lost = true;
        changed.notify_all();
      });
  const auto second = sockets.end(sockets.second);
  second->connection_.send({{"type", "a"}});
  std::unique_lock lock(mutex);
  ASSERT_TRUE(changed.wait_for(lock, 20s, [&]() { return lost; }));
  EXPECT_EQ(reason, "not wanted");
  lock.unlock();
  connection.stop();
}

}  // namespace
