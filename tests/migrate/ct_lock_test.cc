#include "migrate/ct_lock.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>

#include "workers.h"

namespace fs = std::filesystem;
using namespace test_support;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Tries to lock container 101 and gives the error's text, "" for success.
std::string lock() {
  const auto context = QXL::QXLRequestContextPrototype::createInstance();
  const int result = P2V::lockCT(101, "migrating", context);
  EXPECT_EQ(result, context->getLastErrorCode());
  return context->getLastErrorText();
}

std::string ownLock() { return std::to_string(getpid()) + "\nmigrating\n"; }

std::vector<std::string> filesOf(const std::string& directory) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) names.push_back(entry.path());
  return names;
}

double secondsOf(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

TEST(CtLock, FileHoldsPidAndStatusInTheHostsLockDirectory) {
  ScratchHost host;
  host.file("/etc/qx/qx.conf", "LOCKDIR=/vz/lock\n");
  host.run([] {
    std::string path;
    P2V::getLockFile(101, path);
    EXPECT_EQ(path, "/vz/lock/101.lck");
    P2V::getLockFile(4294967295u, path);
    EXPECT_EQ(path, "/vz/lock/4294967295.lck");
    EXPECT_EQ(lock(), "");
    EXPECT_EQ(readFile("/vz/lock/101.lck"), ownLock());
    EXPECT_EQ(P2V::readLockPid("/vz/lock/101.lck"), getpid());
    EXPECT_EQ(P2V::unlockCT(101), 0);
    // Neither the lock nor the temporary file is left.
    EXPECT_THAT(filesOf("/vz/lock"), IsEmpty());
    EXPECT_EQ(P2V::unlockCT(101), 0);
  });
}

TEST(CtLock, TakenLockLeavesNoTemporaryFile) {
  ScratchHost().run([] {
    EXPECT_EQ(lock(), "");
    EXPECT_THAT(filesOf("/run/qx/lock"), ElementsAre(kLock));
  });
}

TEST(CtLock, LiveHolderKeepsTheLock) {
  ScratchHost host;
  host.dir("/run/qx/lock");
  host.run([] {
    makeEntry("/", fileAt(kLock, std::to_string(getpid()) + "\ncreating\n"));
    EXPECT_EQ(lock(),
              "Unable to lock CT 101 already locked by process #" + std::to_string(getpid()));
    EXPECT_EQ(readFile(kLock), std::to_string(getpid()) + "\ncreating\n");
    EXPECT_THAT(filesOf("/run/qx/lock"), ElementsAre(kLock));
  });
}

TEST(CtLock, StaleLockIsRemovedAndTaken) {
  // A pid above the largest that a kernel gives, no number at all, nothing, and zero.
  for (const std::string contents : {"4194305\nmigrating\n", "no number\n", "", "0\nx\n"}) {
    ScratchHost host;
    host.file(kLock, contents);
    host.run([&] {
      EXPECT_LT(secondsOf([] { EXPECT_EQ(lock(), ""); }), 0.4);
      EXPECT_EQ(readFile(kLock), ownLock()) << contents;
    });
  }
}

TEST(CtLock, LockThatCannotBeOpenedIntentionallyCountsAsTakenAfterThreeTries) {
  ScratchHost host;
  host.symlink(kLock, "101.lck");  // to itself
  host.run([] {
    const double seconds = secondsOf([] { EXPECT_EQ(lock(), ""); });
    EXPECT_GE(seconds, 1.5);
    EXPECT_LT(seconds, 2.5);
    // Nothing was taken, and nothing is left behind.
    EXPECT_THAT(filesOf("/run/qx/lock"), ElementsAre(kLock));
    EXPECT_TRUE(fs::is_symlink(kLock));
  });
}

TEST(CtLock, StaleLockThatCannotBeRemovedCountsAsTakenAfterThreeTries) {
  ScratchHost host;
  host.dir(std::string(kLock) + "/in-the-way");  // a directory cannot be unlinked
  host.run([] {
    EXPECT_EQ(lock(), "");
    EXPECT_TRUE(fs::is_directory(kLock));
  });
}

TEST(CtLock, TemporaryFileThatCannotBeMadeIsAnError) {
  ScratchHost host;
  host.file("/etc/qx/qx.conf", "LOCKDIR=/proc\n");
  host.run([] { EXPECT_EQ(lock(), "Unable to lock CT 101: No such file or directory"); });
}

TEST(CtLock, ContentThatCannotBeWrittenIsAnErrorAndLeavesNothing) {
  ScratchHost host;
  host.dir("/run/qx/lock");
  host.run([] {
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit nothing = {0, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &nothing), 0);
    EXPECT_EQ(lock(), "Unable to lock CT 101: File too large");
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_THAT(filesOf("/run/qx/lock"), IsEmpty());
  });
}

TEST(CtLock, UnreadableHostSettingsAreAnErrorBeforeAnythingIsTouched) {
  ScratchHost host;
  host.file("/etc/qx/qx.conf", "this is no setting\n");
  host.run([] {
    std::string path;
    P2V::getLockFile(101, path);
    EXPECT_EQ(path, "");
    EXPECT_EQ(lock(), "Unable to lock CT 101: the host settings name no lock directory");
    EXPECT_FALSE(fs::exists("/run/qx/lock"));
    EXPECT_EQ(P2V::unlockCT(101), 0);
  });
}

TEST(CtLock, PidOfALockFile) {
  const TempTree tree({fileAt("number", "  42 more\n"), fileAt("text", "x 42\n"),
                       fileAt("empty", ""), fileAt("long", std::string(5000, ' ') + "42\n")});
  EXPECT_EQ(P2V::readLockPid(tree.path("number")), 42);
  EXPECT_EQ(P2V::readLockPid(tree.path("text")), 0);
  EXPECT_EQ(P2V::readLockPid(tree.path("empty")), 0);
  // Only 4096 bytes are looked at.
  EXPECT_EQ(P2V::readLockPid(tree.path("long")), 0);
  EXPECT_EQ(P2V::readLockPid(tree.path("missing")), -1);
  // What can be opened and not read has no number.
  EXPECT_EQ(P2V::readLockPid(tree.root()), 0);
}
