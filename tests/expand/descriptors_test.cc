#include "expand/descriptors.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "support/child_test.h"
#include "support/failing_call.h"
#include "support/temp_tree.h"

using namespace Expand;
using test_support::runInChild;

namespace {

struct Pipe {
  Pipe() { EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0); }
  ~Pipe() {
    closeReader();
    closeWriter();
  }
  void closeReader() { closeEnd(0); }
  void closeWriter() { closeEnd(1); }
  int reader() const { return ends[0]; }
  int writer() const { return ends[1]; }

  void closeEnd(int end) {
    if (ends[end] != -1) close(ends[end]);
    ends[end] = -1;
  }
  int ends[2];
};

void ignoreSignal(int) {}

// Makes signals interrupt the calling thread for as long as the object lives.
class Interrupter {
 public:
  Interrupter() : target_(pthread_self()) {
    struct sigaction action = {};
    action.sa_handler = ignoreSignal;
    sigaction(SIGUSR1, &action, &saved_);
    thread_ = std::thread([this] {
      while (!stop_) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        pthread_kill(target_, SIGUSR1);
      }
    });
  }
  ~Interrupter() {
    stop_ = true;
    thread_.join();
    sigaction(SIGUSR1, &saved_, nullptr);
  }

 private:
  pthread_t target_;
  struct sigaction saved_;
  std::atomic<bool> stop_ = false;
  std::thread thread_;
};

}  // namespace

TEST(SetFDNonblock, OtherFlagsStay) {
  const test_support::TempTree tree;
  const int fd = open(tree.path("f").c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  ASSERT_NE(fd, -1);
  EXPECT_EQ(setFDNonblock(fd), 0);
  EXPECT_EQ(fcntl(fd, F_GETFL) & (O_NONBLOCK | O_APPEND | O_ACCMODE),
            O_NONBLOCK | O_APPEND | O_RDWR);
  close(fd);
}

TEST(SetFDNonblock, ClosedDescriptorFails) {
  EXPECT_EQ(setFDNonblock(-1), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(SetFDNonblock, RefusedFlagsFail) {
  runInChild([] {
    test_support::failSystemCall(SYS_fcntl, EPERM, test_support::CallArgument{1, F_SETFL});
    EXPECT_EQ(setFDNonblock(STDIN_FILENO), -1);
  });
}

TEST(ReadFD, ReadsUntilAllHasArrived) {
  Pipe pipe;
  std::thread writer([&] {
    for (const char* piece : {"abc", "def", "ghi"}) {
      ASSERT_EQ(write(pipe.writer(), piece, 3), 3);
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  });
  char buffer[9];
  EXPECT_EQ(readFD(pipe.reader(), buffer, sizeof(buffer)), 9);
  EXPECT_EQ(std::string(buffer, 9), "abcdefghi");
  writer.join();
}

TEST(ReadFD, EndOfFileGivesTheShorterCount) {
  Pipe pipe;
  ASSERT_EQ(write(pipe.writer(), "abc", 3), 3);
  pipe.closeWriter();
  char buffer[10];
  EXPECT_EQ(readFD(pipe.reader(), buffer, sizeof(buffer)), 3);
  EXPECT_EQ(readFD(pipe.reader(), buffer, sizeof(buffer)), 0);
}

TEST(ReadFD, SignalsDoNotEndIt) {
  Pipe pipe;
  const Interrupter interrupter;
  std::thread writer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    EXPECT_EQ(write(pipe.writer(), "ab", 2), 2);
  });
  char buffer[2];
  EXPECT_EQ(readFD(pipe.reader(), buffer, sizeof(buffer)), 2);
  writer.join();
}

TEST(ReadFD, OtherErrorsFail) {
  char buffer[1];
  EXPECT_EQ(readFD(-1, buffer, sizeof(buffer)), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(WriteFD, WritesEverythingThroughANarrowPipeDespiteSignals) {
  Pipe pipe;
  const std::string data(1 << 20, 'x');
  std::string read;
  std::thread reader([&] {
    char buffer[3000];
    ssize_t got;
    while ((got = ::read(pipe.reader(), buffer, sizeof(buffer))) > 0) {
      read.append(buffer, static_cast<size_t>(got));
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
  });
  {
    const Interrupter interrupter;
    EXPECT_EQ(writeFD(pipe.writer(), data.data(), data.size()), static_cast<ssize_t>(data.size()));
  }
  pipe.closeWriter();
  reader.join();
  EXPECT_EQ(read, data);
}

TEST(WriteFD, ErrorFails) {
  EXPECT_EQ(writeFD(-1, "x", 1), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(writeFD(-1, "x", 0), 0);
}

TEST(SwapFD, NumbersExchangeTheirFiles) {
  Pipe pipe;
  const test_support::TempTree tree({test_support::fileAt("f", "contents")});
  const int file = open(tree.path("f").c_str(), O_RDONLY);
  ASSERT_NE(file, -1);
  ASSERT_EQ(write(pipe.writer(), "pipe", 4), 4);
  EXPECT_EQ(swapFD(pipe.reader(), file), 0);
  char buffer[9] = {};
  EXPECT_EQ(read(file, buffer, 4), 4);
  EXPECT_STREQ(buffer, "pipe");
  EXPECT_EQ(read(pipe.reader(), buffer, 8), 8);
  EXPECT_STREQ(buffer, "contents");
  // The pipe was close-on-exec, the file was not: that moves along.
  EXPECT_EQ(fcntl(file, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(fcntl(pipe.reader(), F_GETFD), 0);
  close(file);
}

TEST(SwapFD, OneDescriptorWithItselfStaysAsItIs) {
  Pipe pipe;
  EXPECT_EQ(swapFD(pipe.reader(), pipe.reader()), 0);
  EXPECT_NE(fcntl(pipe.reader(), F_GETFD), -1);
}

TEST(SwapFD, ClosedDescriptorFailsAndChangesNothing) {
  Pipe pipe;
  EXPECT_EQ(swapFD(pipe.reader(), -1), -1);
  EXPECT_EQ(swapFD(-1, pipe.reader()), -1);
  EXPECT_NE(fcntl(pipe.reader(), F_GETFD), -1);
}

TEST(SwapFD, NoSpareDescriptorFails) {
  runInChild([] {
    test_support::failSystemCall(SYS_fcntl, EMFILE, test_support::CallArgument{1, F_DUPFD_CLOEXEC});
    EXPECT_EQ(swapFD(STDOUT_FILENO, STDERR_FILENO), -1);
    EXPECT_EQ(errno, EMFILE);
  });
}

TEST(DumpOpenFDs, EveryOpenDescriptorHasALineWithItsFlags) {
  runInChild([] {
    const test_support::TempTree tree;
    const std::string path = tree.path("err");
    const int err = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    ASSERT_NE(err, -1);
    const int high = fcntl(err, F_DUPFD, 20);
    dup2(err, STDERR_FILENO);
    close(err);
    const rlimit limit{20, 4096};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    dumpOpenFDs();
    const std::string text = test_support::readFile(path);
    // O_WRONLY, O_APPEND and the kernel's own O_LARGEFILE.
    EXPECT_THAT(text, testing::HasSubstr("fd #2: 102001\n"));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("fd #" + std::to_string(err) + ":")));
    // Above the limit.
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("fd #" + std::to_string(high) + ":")));
  });
}

TEST(DumpOpenFDs, UnreadableLimitIsReported) {
  runInChild([] {
    const test_support::TempTree tree;
    const std::string path = tree.path("err");
    const int err = open(path.c_str(), O_WRONLY | O_CREAT, 0600);
    dup2(err, STDERR_FILENO);
    test_support::failSystemCall(SYS_prlimit64, EPERM);
    dumpOpenFDs();
    EXPECT_EQ(test_support::readFile(path),
              "ERROR: Can't get max number of open fds: Operation not permitted\n");
  });
}
