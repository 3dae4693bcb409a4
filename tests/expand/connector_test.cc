#include "expand/connector.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "support/child_test.h"

using namespace Expand;

namespace {

// A connector on one end of a pipe whose other end is the test's.
class ConnectorTest : public testing::Test {
 protected:
  ConnectorTest() {
    EXPECT_EQ(pipe2(ends_, O_CLOEXEC | O_NONBLOCK), 0);
    signal(SIGPIPE, SIG_IGN);
  }
  ~ConnectorTest() override {
    for (const int end : ends_) {
      if (end != -1) close(end);
    }
    signal(SIGPIPE, SIG_DFL);
  }

  void reads(Connector& connector) {
    entry_.fd = ends_[0];
    connector.assign(&entry_);
  }
  void writes(Connector& connector) {
    entry_.fd = ends_[1];
    connector.assign(&entry_);
  }
  void put(const std::string& text) {
    ASSERT_EQ(write(ends_[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  std::string taken() {
    char buffer[65536];
    const ssize_t got = read(ends_[0], buffer, sizeof(buffer));
    return got > 0 ? std::string(buffer, static_cast<size_t>(got)) : "";
  }
  void closeEnd(int end) {
    close(ends_[end]);
    ends_[end] = -1;
  }

  int ends_[2];
  pollfd entry_ = {-1, 0, 0};
};

using CfromStaticBufTest = ConnectorTest;
using CtoDynaBufTest = ConnectorTest;
using CtoStaticBufTest = ConnectorTest;

}  // namespace

TEST_F(CfromStaticBufTest, ShortDataIsWrittenInOneStep) {
  CfromStaticBuf connector("hello", 5);
  writes(connector);
  EXPECT_EQ(connector.process(), 0);
  EXPECT_EQ(taken(), "hello");
}

TEST_F(CfromStaticBufTest, NoDataIsFinishedAtOnce) {
  CfromStaticBuf connector("", 0);
  writes(connector);
  EXPECT_EQ(connector.process(), 0);
  EXPECT_EQ(taken(), "");
}

TEST_F(CfromStaticBufTest, ExactlyOneChunkIsWrittenInOneStep) {
  const std::string data(4096, 'x');
  CfromStaticBuf connector(data.data(), data.size());
  writes(connector);
  EXPECT_EQ(connector.process(), 0);
  EXPECT_EQ(taken(), data);
}

TEST_F(CfromStaticBufTest, EveryStepWritesFromTheFirstByteIntended) {
  const std::string data = std::string(4096, 'a') + std::string(4096, 'b') + "tail";
  CfromStaticBuf connector(data.data(), data.size());
  writes(connector);
  EXPECT_EQ(connector.process(), 1);
  EXPECT_EQ(connector.process(), 1);
  EXPECT_EQ(connector.process(), 0);
  EXPECT_EQ(taken(), std::string(4096 + 4096 + 4, 'a'));
}

TEST_F(CfromStaticBufTest, ClosedReaderGivesTheNegatedErrno) {
  CfromStaticBuf connector("hello", 5);
  writes(connector);
  closeEnd(0);
  EXPECT_EQ(connector.process(), -EPIPE);
}

TEST_F(CfromStaticBufTest, PartialWriteGoesOn) {
  ASSERT_EQ(fcntl(ends_[1], F_SETPIPE_SZ, 4096), 4096);
  const std::string data(5000, 'x');
  CfromStaticBuf connector(data.data(), data.size());
  writes(connector);
  EXPECT_EQ(connector.process(), 1);
  EXPECT_EQ(taken().size(), 4096u);
  EXPECT_EQ(connector.process(), 0);
  EXPECT_EQ(taken().size(), 904u);
}

TEST_F(CtoDynaBufTest, DataIsCollectedUntilTheEnd) {
  CtoDynaBuf connector(1000, true, -1);
  reads(connector);
  put("abc");
  EXPECT_EQ(connector.process(), 3);
  put("defg");
  EXPECT_EQ(connector.process(), 4);
  closeEnd(1);
  EXPECT_EQ(connector.process(), 0);
  EXPECT_EQ(connector.output(), "abcdefg");
}

TEST_F(CtoDynaBufTest, OneStepReadsAtMost4096Bytes) {
  CtoDynaBuf connector(100000, true, -1);
  reads(connector);
  put(std::string(5000, 'x'));
  EXPECT_EQ(connector.process(), 4096);
  EXPECT_EQ(connector.process(), 904);
}

TEST_F(CtoDynaBufTest, LimitWithoutKeepReadingEndsAtOnce) {
  CtoDynaBuf connector(5, false, -1);
  reads(connector);
  put("abcdefgh");
  EXPECT_EQ(connector.process(), 0);
  EXPECT_EQ(connector.output(), "abcde");
}

TEST_F(CtoDynaBufTest, OutputThatJustFillsTheLimitEndsToo) {
  CtoDynaBuf connector(5, false, -1);
  reads(connector);
  put("abcd");
  EXPECT_EQ(connector.process(), 4);
  put("e");
  EXPECT_EQ(connector.process(), 0);
  EXPECT_EQ(connector.output(), "abcde");
}

TEST_F(CtoDynaBufTest, LimitWithKeepReadingDropsTheRest) {
  CtoDynaBuf connector(5, true, -1);
  reads(connector);
  put("abcdefgh");
  EXPECT_EQ(connector.process(), 8);
  put("ij");
  EXPECT_EQ(connector.process(), 2);
  EXPECT_EQ(connector.output(), "abcde");
}

TEST_F(CtoDynaBufTest, LimitOfZeroCollectsNothing) {
  CtoDynaBuf connector(0, true, -1);
  reads(connector);
  put("abc");
  EXPECT_EQ(connector.process(), 3);
  EXPECT_EQ(connector.output(), "");
}

TEST_F(CtoDynaBufTest, CopyGetsEverythingThatIsReadAlsoBeyondTheLimit) {
  int copy[2];
  ASSERT_EQ(pipe2(copy, O_CLOEXEC), 0);
  CtoDynaBuf connector(2, true, copy[1]);
  reads(connector);
  put("abcdef");
  EXPECT_EQ(connector.process(), 6);
  EXPECT_EQ(connector.output(), "ab");
  char buffer[7] = {};
  EXPECT_EQ(read(copy[0], buffer, 6), 6);
  EXPECT_STREQ(buffer, "abcdef");
  EXPECT_NE(fcntl(copy[1], F_GETFD), -1);
  close(copy[0]);
  close(copy[1]);
}

TEST_F(CtoDynaBufTest, CopyDoesNotGetTheChunkThatEndsTheReading) {
  int copy[2];
  ASSERT_EQ(pipe2(copy, O_CLOEXEC | O_NONBLOCK), 0);
  CtoDynaBuf connector(2, false, copy[1]);
  reads(connector);
  put("abcdef");
  EXPECT_EQ(connector.process(), 0);
  char byte;
  EXPECT_EQ(read(copy[0], &byte, 1), -1);
  close(copy[0]);
  close(copy[1]);
}

TEST_F(CtoDynaBufTest, FailingCopyIsClosedAndCollectingGoesOn) {
  int copy[2];
  ASSERT_EQ(pipe2(copy, O_CLOEXEC), 0);
  close(copy[0]);
  CtoDynaBuf connector(1000, true, copy[1]);
  reads(connector);
  put("abc");
  EXPECT_EQ(connector.process(), 3);
  EXPECT_EQ(fcntl(copy[1], F_GETFD), -1);
  put("def");
  EXPECT_EQ(connector.process(), 3);
  EXPECT_EQ(connector.output(), "abcdef");
}

TEST_F(CtoDynaBufTest, ReadErrorGivesTheNegatedErrno) {
  CtoDynaBuf connector(1000, true, -1);
  reads(connector);
  EXPECT_EQ(connector.process(), -EAGAIN);
  entry_.fd = -1;
  EXPECT_EQ(connector.process(), -EBADF);
}

TEST_F(CtoStaticBufTest, IsFinishedAtOnceAndReadsNothing) {
  CtoStaticBuf connector;
  reads(connector);
  put("abc");
  EXPECT_EQ(connector.process(), 0);
  EXPECT_EQ(taken(), "abc");
}
