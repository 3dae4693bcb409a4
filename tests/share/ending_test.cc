// Endings that are not the good one: files that vanish, and processes that die.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <thread>

#include "host/copy_report.h"
#include "share_tests/transfer.h"
#include "support/child_test.h"
#include "support/temp_tree.h"

using test_support::dirAt;
using test_support::fileAt;
using test_support::readFile;
using test_support::TempTree;

namespace {

namespace fs = std::filesystem;

class Ending : public testing::Test {
 protected:
  NoProcessLeftBehind processes_;
  TempTree tree_{dirAt("from"), dirAt("to")};
  const std::string from_ = tree_.path("from");
  const std::string to_ = tree_.path("to");
};

bool isEngines() { return std::string_view(std::getenv("QX_RSYNC_ENGINE")) == "own"; }

std::string randomBytes(size_t size) {
  std::mt19937_64 random(1);
  std::string bytes(size, '\0');
  for (char& c : bytes) c = static_cast<char>(random());
  return bytes;
}

// A transfer that would take hours: one enormous file that is all hole. As the engine
// makes nothing of holes, there it is one that takes minutes at the rate that is allowed.
class MidTransfer : public Ending, public testing::WithParamInterface<Channel (*)()> {
 protected:
  Transfer run_{from_ + "/", to_};
  pid_t stockClient_ = -1;
  pid_t stockServer_ = -1;
  pid_t joiner_ = -1;

  // Returns when the file is on its way.
  void startEndlessTransfer(Channel channel) {
    if (isEngines()) return startSlowTransfer(std::move(channel));
    makeEntry(from_, fileAt("endless", "x"));
    ASSERT_EQ(::truncate((from_ + "/endless").c_str(), 1L << 42), 0);
    run_.start(std::move(channel));
    // Between the two is the first process of the enclosure.
    stockClient_ = awaitChild(awaitChild(run_.client().pid(), "rsync"), "rsync");
    stockServer_ = awaitChild(run_.server().pid(), "rsync");
    bool underWay = false;
    for (int i = 0; i < 2000 && !underWay; ++i) {
      ::usleep(5000);
      for (const auto& entry : fs::directory_iterator(to_))
        underWay = underWay || entry.path().filename().string().rfind(".endless.", 0) == 0;
    }
    ASSERT_TRUE(underWay);
    // The joiner is the stock client's child that was started from our file.
    for (const pid_t child : childrenNamed(stockClient_, "rsync"))
      if (fs::equivalent("/proc/" + std::to_string(child) + "/exe", builtRsync())) joiner_ = child;
    ASSERT_GT(joiner_, 0);
  }

  void startSlowTransfer(Channel channel) {
    makeEntry(from_, fileAt("endless", randomBytes(64 << 20)));
    ::setenv("QX_RSYNC_BWLIMIT", "400", 1);
    run_.start(std::move(channel));
    ::unsetenv("QX_RSYNC_BWLIMIT");
    bool underWay = false;
    for (int i = 0; i < 2000 && !underWay; ++i) {
      ::usleep(5000);
      underWay = fs::exists(to_ + "/endless");
    }
    ASSERT_TRUE(underWay);
  }

  void expectBothEndSoon() {
    EXPECT_NE(run_.client().exitStatus(10), 0);
    EXPECT_NE(run_.server().exitStatus(10), 0);
  }
};

}  // namespace

TEST_P(MidTransfer, KilledServerEndsTheClient) {
  startEndlessTransfer(GetParam()());
  signalOne(run_.server().pid(), SIGKILL);
  EXPECT_EQ(run_.client().exitStatus(10), 12) << run_.client().err();
  EXPECT_EQ(run_.server().exitStatus(10), 1000 + SIGKILL);
}

TEST_P(MidTransfer, KilledStockServerEndsBoth) {
  startEndlessTransfer(GetParam()());
  signalOne(stockServer_, SIGKILL);
  EXPECT_EQ(run_.client().exitStatus(10), 12) << run_.client().err();
  EXPECT_EQ(run_.server().exitStatus(10), 1000 + SIGKILL);
}

TEST_P(MidTransfer, KilledClientEndsTheServer) {
  startEndlessTransfer(GetParam()());
  signalOne(run_.client().pid(), SIGKILL);
  expectBothEndSoon();
}

TEST_P(MidTransfer, KilledStockClientEndsBoth) {
  startEndlessTransfer(GetParam()());
  signalOne(stockClient_, SIGKILL);
  expectBothEndSoon();
}

TEST_P(MidTransfer, KilledJoinerEndsBoth) {
  startEndlessTransfer(GetParam()());
  signalOne(joiner_, SIGKILL);
  expectBothEndSoon();
}

TEST_P(MidTransfer, TerminatedClientTidiesUpAndEndsWithStocksStatus) {
  startEndlessTransfer(GetParam()());
  signalOne(run_.client().pid(), SIGTERM);
  EXPECT_EQ(run_.client().exitStatus(10), 20) << run_.client().err();
  EXPECT_NE(run_.server().exitStatus(10), 0);
  EXPECT_TRUE(fs::is_empty(to_));
}

TEST_P(MidTransfer, TerminatedServerEndsBoth) {
  startEndlessTransfer(GetParam()());
  signalOne(run_.server().pid(), SIGTERM);
  expectBothEndSoon();
}

TEST_P(MidTransfer, ServersEndsLeakedIntoTheClientDoNotKeepItWaiting) {
  run_.leakServerEndsIntoClient();
  startEndlessTransfer(GetParam()());
  signalOne(run_.server().pid(), SIGKILL);
  expectBothEndSoon();
}

TEST_P(MidTransfer, OnlyTheJoinerHoldsTheChannel) {
  struct stat channelStatus {};
  Channel channel = GetParam()();
  ASSERT_EQ(::fstat(channel.client.in.get(), &channelStatus), 0);
  startEndlessTransfer(std::move(channel));

  std::set<pid_t> holders;
  std::vector<pid_t> processes = childrenNamed(stockClient_, "rsync");
  processes.insert(processes.end(), {run_.client().pid(), stockClient_});
  for (const pid_t pid : processes)
    for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd")) {
      struct stat status {};
      if (::stat(entry.path().c_str(), &status) == 0 && status.st_ino == channelStatus.st_ino &&
          status.st_dev == channelStatus.st_dev)
        holders.insert(pid);
    }
  EXPECT_EQ(holders, std::set<pid_t>{joiner_});
  signalOne(run_.client().pid(), SIGKILL);
  expectBothEndSoon();
}

TEST_P(MidTransfer, OnSocketsNoByteGoesThroughTheJoiner) {
  const Channel probe = GetParam()();
  struct stat status {};
  ASSERT_EQ(::fstat(probe.client.in.get(), &status), 0);
  startEndlessTransfer(GetParam()());
  const fs::path input = fs::read_symlink("/proc/" + std::to_string(joiner_) + "/fd/0");
  EXPECT_EQ(input == "/dev/null", S_ISSOCK(status.st_mode) != 0) << input;
  signalOne(run_.client().pid(), SIGKILL);
  expectBothEndSoon();
}

INSTANTIATE_TEST_SUITE_P(Pipes, MidTransfer, testing::Values(pipeChannel));
// Here stock rsync's own descriptors go to the server.
INSTANTIATE_TEST_SUITE_P(Sockets, MidTransfer, testing::Values(+[] { return socketChannel(); }));

namespace {

// What the client reports of the copies of this test.
class Reporting : public Ending {
 protected:
  Reporting() { ::setenv(host::kCopyReportVariable, path_.c_str(), 1); }
  ~Reporting() override { ::unsetenv(host::kCopyReportVariable); }

  host::CopyReport report() const { return host::parseCopyReport(readFile(path_)); }
  std::string first() const {
    const host::CopyReport found = report();
    return found.files.empty() ? "" : host::textOf(found.files.front());
  }

  const std::string path_ = tree_.path("report");
};

// A file that nobody can change or replace, as long as this object lives.
class ImmutableFile {
 public:
  explicit ImmutableFile(const std::string& path)
      : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (!set(FS_IMMUTABLE_FL)) {
      throw test_support::Unavailable{"no file can be made immutable on the file system of " +
                                      path};
    }
  }
  ~ImmutableFile() { set(0); }
  ImmutableFile(const ImmutableFile&) = delete;
  ImmutableFile& operator=(const ImmutableFile&) = delete;

 private:
  bool set(int flag) const {
    int flags = 0;
    if (::ioctl(fd_.get(), FS_IOC_GETFLAGS, &flags) != 0) return false;
    flags = (flags & ~FS_IMMUTABLE_FL) | flag;
    return ::ioctl(fd_.get(), FS_IOC_SETFLAGS, &flags) == 0;
  }

  Fd fd_;
};

}  // namespace

TEST_F(Reporting, CompleteCopyIsReported) {
  makeEntry(tree_.path(""), fileAt("report", "of an earlier copy"));
  transfer(from_ + "/", to_);
  EXPECT_EQ(readFile(path_), "0\n=\tcopied by stock rsync, as this end asks for it\n");
}

TEST_F(Reporting, FailedCopyHasNoReport) {
  makeEntry(tree_.path(""), fileAt("report", "of an earlier copy"));
  Transfer run(from_ + "/", to_ + "/not/there/at/all");
  run.start(pipeChannel());
  EXPECT_EQ(run.client().exitStatus(10), 3) << run.client().err();
  EXPECT_FALSE(fs::exists(path_));
}

TEST_F(Reporting, FileThatCannotBeReplacedIsNamed) {
  makeEntry(from_, dirAt("d"));
  makeEntry(from_, fileAt("d/fixed", "new content"));
  makeEntry(to_, dirAt("d"));
  makeEntry(to_, fileAt("d/fixed", "old"));
  const std::string usual = std::getenv("QX_RSYNC_ENGINE");
  for (const char* engine : {"stock", "own"}) {
    ::setenv("QX_RSYNC_ENGINE", engine, 1);
    test_support::runInChild([&] {
      const ImmutableFile fixed(to_ + "/d/fixed");
      Transfer run(from_ + "/", to_);
      run.start(pipeChannel());
      EXPECT_EQ(run.client().exitStatus(), 23);
      EXPECT_NE(run.client().err().find("fixed"), std::string::npos) << run.client().err();
    });
    EXPECT_EQ(report().count, 1u) << engine;
    EXPECT_EQ(first().substr(0, 10), "/d/fixed: ") << first();
    EXPECT_NE(first().find(": Operation not permitted"), std::string::npos) << first();
  }
  ::setenv("QX_RSYNC_ENGINE", usual.c_str(), 1);
}

// A file of the kernel's that gives "Input/output error" when it is read.
TEST_F(Reporting, FileThatCannotBeReadIsNamed) {
  const char* bad = "/sys/devices/platform/power/autosuspend_delay_ms";
  if (::geteuid() != 0 || !fs::exists(bad)) GTEST_SKIP() << "NOT TESTED: needs root and " << bad;
  makeEntry(from_, fileAt("bad", "x"));
  test_support::runInChild([&] {
    ASSERT_EQ(::unshare(CLONE_NEWNS), 0);
    ASSERT_EQ(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
    ASSERT_EQ(::mount(bad, (from_ + "/bad").c_str(), nullptr, MS_BIND, nullptr), 0);
    transfer(from_ + "/", to_, {}, 23);
  });
  // The engine names it as it is below what is served; in a migration that is the same.
  const std::string above = isEngines() ? "" : from_;
  EXPECT_EQ(first(), above + "/bad: cannot be read on the server: Input/output error");
}

TEST_F(Reporting, VanishedFileEndsWithPartialStatusAtBothEndsAndIsNoProblem) {
  // Names of one directory are sent at once, and files in this order.
  makeEntry(from_, fileAt("a first", randomBytes(32 << 20)));
  makeEntry(from_, fileAt("b vanishes", "x"));
  makeEntry(from_, fileAt("c last", "y"));

  RelayedChannel channel = relayedChannel();
  std::thread up([from = std::move(channel.toClient.in), to = std::move(channel.toServer.out)] {
    char buffer[65536];
    ssize_t count = 0;
    while ((count = ::read(from.get(), buffer, sizeof buffer)) > 0)
      if (::write(to.get(), buffer, static_cast<size_t>(count)) != count) break;
  });
  Transfer run(from_ + "/", to_);
  run.start(std::move(channel.ends));

  // In the midst of the first file nothing is taken from the server until the
  // second is gone. Its pipes hold far less than what is left of the first.
  size_t passed = 0;
  char buffer[65536];
  ssize_t count = 0;
  while ((count = ::read(channel.toServer.in.get(), buffer, sizeof buffer)) > 0) {
    if (::write(channel.toClient.out.get(), buffer, static_cast<size_t>(count)) != count) break;
    passed += static_cast<size_t>(count);
    if (passed > 4 << 20) fs::remove(from_ + "/b vanishes");
  }
  channel.toServer.in.close();
  channel.toClient.out.close();
  run.expectBothEndWith(23);
  up.join();
  EXPECT_FALSE(fs::exists(to_ + "/b vanishes"));
  EXPECT_EQ(readFile(to_ + "/c last"), "y");
  EXPECT_NE(run.client().err().find("vanished"), std::string::npos) << run.client().err();
  EXPECT_EQ(report().count, 0u);
}

TEST_F(Ending, SourceThatIsNotThereEndsWithStocksStatus) {
  Transfer run(from_ + "/missing/", to_);
  run.start(pipeChannel());
  run.expectBothEndWith(23);
  EXPECT_NE(run.client().err().find("missing"), std::string::npos) << run.client().err();
}

TEST_F(Ending, DestinationThatCannotBeMadeEndsWithStocksStatus) {
  Transfer run(from_ + "/", to_ + "/not/there/at all");
  run.start(pipeChannel());
  EXPECT_EQ(run.client().exitStatus(10), 3) << run.client().err();
  EXPECT_NE(run.server().exitStatus(10), 0);
}
