#include "host/pass_fds.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <array>
#include <cerrno>
#include <csignal>

namespace {

class PassFds : public testing::Test {
 protected:
  PassFds() {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    ours_.reset(ends[0]);
    theirs_.reset(ends[1]);
  }

  host::Fd ours_, theirs_;
};

TEST_F(PassFds, DescriptorsComeWithTheirBytesAndAreClosedOnExec) {
  int pipeEnds[2];
  ASSERT_EQ(pipe(pipeEnds), 0);
  const host::Fd readEnd(pipeEnds[0]), writeEnd(pipeEnds[1]);
  EXPECT_EQ(host::sendWithFds(ours_.get(), "token", std::array{pipeEnds[0], pipeEnds[1]}), 5);
  std::vector<host::Fd> fds;
  char buffer[16];
  ASSERT_EQ(host::receiveWithFds(theirs_.get(), buffer, sizeof buffer, fds), 5);
  EXPECT_EQ(std::string(buffer, 5), "token");
  ASSERT_EQ(fds.size(), 2u);
  struct stat sent, got;
  ASSERT_EQ(fstat(pipeEnds[1], &sent), 0);
  ASSERT_EQ(fstat(fds[1].get(), &got), 0);
  EXPECT_EQ(sent.st_ino, got.st_ino);
  EXPECT_TRUE(fcntl(fds[0].get(), F_GETFD) & FD_CLOEXEC);
}

TEST_F(PassFds, BytesAloneBringNoDescriptors) {
  EXPECT_EQ(host::sendWithFds(ours_.get(), "x", {}), 1);
  std::vector<host::Fd> fds;
  char byte;
  EXPECT_EQ(host::receiveWithFds(theirs_.get(), &byte, 1, fds), 1);
  EXPECT_TRUE(fds.empty());
}

int peerOfTheSignal = -1;

TEST_F(PassFds, AnInterruptedCallIsRepeated) {
  peerOfTheSignal = theirs_.get();
  struct sigaction action {
  }, before{};
  action.sa_handler = [](int) {
    if (write(peerOfTheSignal, "x", 1) != 1) _exit(1);
  };
  ASSERT_EQ(sigaction(SIGALRM, &action, &before), 0);
  const itimerval soon{{0, 0}, {0, 50000}};
  ASSERT_EQ(setitimer(ITIMER_REAL, &soon, nullptr), 0);
  std::vector<host::Fd> fds;
  char byte = 0;
  EXPECT_EQ(host::receiveWithFds(ours_.get(), &byte, 1, fds), 1);
  EXPECT_EQ(byte, 'x');
  sigaction(SIGALRM, &before, nullptr);
}

TEST_F(PassFds, APeerThatIsGoneAndTooManyDescriptorsAreErrors) {
  const std::vector<int> many(host::kMaxPassedFds + 1, ours_.get());
  EXPECT_EQ(host::sendWithFds(ours_.get(), "x", many), -1);
  EXPECT_EQ(errno, EINVAL);
  theirs_.reset();
  EXPECT_EQ(host::sendWithFds(ours_.get(), "x", {}), -1);
  EXPECT_EQ(errno, EPIPE);
}

}  // namespace
