// Passes that are cut short, that overlap with changes, that have little room.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "host/io_priority.h"
#include "share/engine/temporary_name.h"
#include "share_tests/engine/random_tree.h"
#include "share_tests/engine/seed.h"
#include "share_tests/transfer.h"
#include "share_tests/tree_picture.h"
#include "support/temp_tree.h"

using test_support::dirAt;
using test_support::fileAt;
using test_support::TempTree;

namespace {

namespace fs = std::filesystem;

class Passes : public testing::Test {
 protected:
  Passes() {
    ::setenv("QX_RSYNC_ENGINE", "own", 1);
    ::setenv("QXA_TMPDIR", tree_.path("agent").c_str(), 1);
    ::unsetenv("QX_RSYNC_BWLIMIT");
  }
  ~Passes() override { ::unsetenv("QX_RSYNC_BWLIMIT"); }

  // The program, with something in its environment that the other end's has not.
  std::string programWith(const std::string& variables) {
    return rsyncRunBy("env " + variables, tree_.path("with" + std::to_string(++wrappers_)));
  }

  int wrappers_ = 0;
  NoProcessLeftBehind processes_;
  TempTree tree_{dirAt("from"), dirAt("to"), dirAt("agent")};
  const std::string from_ = tree_.path("from");
  const std::string to_ = tree_.path("to");
};

// Carries bytes on until the end, or until there were so many, and counts them.
std::uint64_t relay(int from, int to, std::uint64_t most = UINT64_MAX) {
  char buffer[65536];
  std::uint64_t total = 0;
  ssize_t count = 0;
  while (total < most && (count = ::read(from, buffer, sizeof buffer)) > 0) {
    total += static_cast<std::uint64_t>(count);
    if (::write(to, buffer, static_cast<size_t>(count)) != count) break;
  }
  return total;
}

// One pass; the bytes that the sender sent. When it has sent so many, it waits for
// `meanwhile`.
std::uint64_t sentBytes(
    Transfer& run, int status = 0, std::uint64_t when = 0,
    const std::function<void()>& meanwhile = [] {}) {
  RelayedChannel channel = relayedChannel();
  run.start(std::move(channel.ends));
  std::thread up([&] {
    relay(channel.toClient.in.get(), channel.toServer.out.get());
    channel.toServer.out.close();
  });
  std::uint64_t bytes = relay(channel.toServer.in.get(), channel.toClient.out.get(), when);
  meanwhile();
  bytes += relay(channel.toServer.in.get(), channel.toClient.out.get());
  channel.toClient.out.close();
  run.expectBothEndWith(status);
  up.join();
  return bytes;
}

std::uint64_t sentBytes(const std::string& from, const std::string& to) {
  Transfer run(from + "/", to);
  return sentBytes(run);
}

ino_t inodeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status.st_ino;
}

// Made anew, or changed in every block.
void changeLargeFile(const std::string& path, std::mt19937& random) {
  static const std::string contents = noise(5 << 20);
  if (random() % 2 == 0 || !fs::is_regular_file(fs::symlink_status(path))) fs::remove_all(path);
  if (!fs::exists(path)) std::ofstream(path) << contents;
  std::ofstream file(path, std::ios::in | std::ios::out);
  for (int i = 0; i < 40; ++i) file.seekp(i << 17) << "changed " << random();
}

int kills() {
  const char* wanted = std::getenv("QX_TEST_KILLS");
  return wanted != nullptr ? std::atoi(wanted) : 12;
}

}  // namespace

// No change is hidden by its times, as it may be missed after a kill: nothing is known of
// the copy then. The limit makes a pass with a large file take longer than it is let live,
// mostly.
TEST_F(Passes, KilledAtAnyMomentTheNextOneMakesItExact) {
  const unsigned seed = testSeed();
  SCOPED_TRACE("QX_TEST_SEED=" + std::to_string(seed));
  std::mt19937 random(seed);
  RandomTree source(from_, seed);
  source.grow(60);
  transfer(from_ + "/", to_);
  int cutShort = 0;
  for (int i = 0; i < kills(); ++i) {
    source.mutate(20);
    changeLargeFile(from_ + "/large file", random);
    ::setenv("QX_RSYNC_BWLIMIT", "10000", 1);
    Transfer run(from_ + "/", to_);
    run.start(pipeChannel());
    ::usleep(static_cast<useconds_t>(random() % 550000));
    ProgramRun& victim = random() % 2 == 0 ? run.client() : run.server();
    signalOne(victim.pid(), SIGKILL);
    const int client = run.client().exitStatus(20);
    const int server = run.server().exitStatus(20);
    if (client != 0 && server != 0) ++cutShort;
    ::unsetenv("QX_RSYNC_BWLIMIT");
    transfer(from_ + "/", to_);
    ASSERT_EQ(differences(to_, from_), "") << "after kill " << i;
  }
  EXPECT_GT(cutShort, kills() / 2);
}

TEST_F(Passes, ChangesDuringThePassesAreAllThereAfterTheLast) {
  const unsigned seed = testSeed();
  SCOPED_TRACE("QX_TEST_SEED=" + std::to_string(seed));
  RandomTree source(from_, seed);
  source.hideSomeChanges();
  source.grow(150);
  std::atomic<bool> stop{false};
  std::thread writer([&] {
    while (!stop) source.mutate(1);
  });
  for (int pass = 0; pass < 4; ++pass) {
    Transfer run(from_ + "/", to_);
    run.start(pipeChannel());
    const int status = run.client().exitStatus();
    EXPECT_TRUE(status == 0 || status == 23) << run.client().err();
    EXPECT_EQ(run.server().exitStatus(), status) << run.server().err();
  }
  stop = true;
  writer.join();
  transfer(from_ + "/", to_);
  EXPECT_EQ(differences(to_, from_), "");
}

// A directory's names are read at once, and its entries looked at in the order of their
// numbers; the sender is held up at the first of them.
TEST_F(Passes, WhatVanishesWhileItsDirectoryIsReadGoesAtTheDestinationToo) {
  for (const char* tracked : {"", "0"}) {
    ::setenv("QX_RSYNC_TRACK", tracked, 1);
    const std::string first = from_ + "/first";
    std::ofstream(first) << "contents";
    std::vector<std::string> vanishing;
    for (int i = 0; i < 40; ++i) {
      const std::string name = from_ + "/later" + std::to_string(i);
      std::ofstream(name + ".target") << i;
      fs::create_symlink("nothing", name);
      for (const std::string& path : {name, name + ".target"})
        if (inodeOf(path) > inodeOf(first)) vanishing.push_back(path);
    }
    ASSERT_FALSE(vanishing.empty());
    ::usleep(100000);
    sentBytes(from_, to_);
    std::ofstream(first) << noise(8 << 20);  // more than any pipe holds
    // Where changes are tracked, too, all of the directory is to be looked at.
    ASSERT_EQ(::chmod(from_.c_str(), *tracked == '0' ? 0711 : 0710), 0);
    Transfer run(from_ + "/", to_);
    sentBytes(run, 23, 20000, [&] {
      for (const std::string& path : vanishing) fs::remove(path);
    });
    EXPECT_NE(run.client().err().find("has vanished"), std::string::npos) << run.client().err();
    EXPECT_EQ(differences(to_, from_), "");
    sentBytes(from_, to_);
    EXPECT_EQ(differences(to_, from_), "");
    for (const auto& entry : fs::directory_iterator(from_)) fs::remove(entry.path());
  }
  ::unsetenv("QX_RSYNC_TRACK");
}

TEST_F(Passes, NothingChangedMeansNextToNothingSent) {
  RandomTree source(from_, 7);
  source.grow(200);
  ::usleep(100000);  // what is quite new is looked at again
  const std::uint64_t first = sentBytes(from_, to_);
  EXPECT_GT(first, 100000U);
  EXPECT_LT(sentBytes(from_, to_), 1000U);
  EXPECT_EQ(differences(to_, from_), "");
}

TEST_F(Passes, OfALargeFileOnlyChangedBlocksAreSent) {
  const std::string contents = noise(20 << 20);
  tree_.add(fileAt("from/large", contents));
  ::usleep(100000);
  EXPECT_GT(sentBytes(from_, to_), contents.size());
  struct stat before {};
  ASSERT_EQ(::stat((to_ + "/large").c_str(), &before), 0);
  {
    std::ofstream file(from_ + "/large", std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(10000000).write("changed", 7);
    file.seekp(0, std::ios::end).write("longer", 6);
  }
  EXPECT_LT(sentBytes(from_, to_), 300000U);
  EXPECT_EQ(differences(to_, from_), "");
  struct stat after {};
  ASSERT_EQ(::stat((to_ + "/large").c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(Passes, ModeThatChangedIsSentWithoutTheContents) {
  tree_.add(fileAt("from/file", std::string(200000, 'x')));
  ::usleep(100000);
  sentBytes(from_, to_);
  ASSERT_EQ(::chmod((from_ + "/file").c_str(), 0600), 0);
  EXPECT_LT(sentBytes(from_, to_), 1000U);
  EXPECT_EQ(differences(to_, from_), "");
}

TEST_F(Passes, EmptiedDestinationIsFilledThoughTheManifestIsThere) {
  RandomTree source(from_, 8);
  source.grow(50);
  transfer(from_ + "/", to_);
  for (const auto& entry : fs::directory_iterator(to_)) fs::remove_all(entry.path());
  transfer(from_ + "/", to_);
  EXPECT_EQ(differences(to_, from_), "");
}

TEST_F(Passes, OtherExclusionsMeanThatEverythingIsCompared) {
  tree_.add(fileAt("from/a", "a"));
  tree_.add(fileAt("from/b", "b"));
  transfer(from_ + "/", to_, {"--exclude=/a"});
  EXPECT_FALSE(fs::exists(to_ + "/a"));
  transfer(from_ + "/", to_);
  EXPECT_EQ(differences(to_, from_), "");
}

TEST_F(Passes, SparseFileOfManyGigabytesTakesNoTime) {
  const std::string name = from_ + "/sparse";
  {
    const Fd file(::open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(::pwrite(file.get(), "data", 4, 20L << 30), 4);
    ASSERT_EQ(::ftruncate(file.get(), 40L << 30), 0);
  }
  EXPECT_LT(sentBytes(from_, to_), 100000U);
  struct stat status {};
  ASSERT_EQ(::stat((to_ + "/sparse").c_str(), &status), 0);
  EXPECT_EQ(status.st_size, 40L << 30);
  EXPECT_LT(status.st_blocks * 512, 1 << 20);
}

TEST_F(Passes, TerminatedClientTidiesUp) {
  ::setenv("QX_RSYNC_BWLIMIT", "500", 1);
  std::ofstream(from_ + "/large") << noise(8 << 20);
  Transfer run(from_ + "/", to_);
  run.start(pipeChannel());
  for (int i = 0; i < 1000 && !fs::exists(to_ + "/large"); ++i) ::usleep(10000);
  ASSERT_TRUE(fs::exists(to_ + "/large"));
  signalOne(run.client().pid(), SIGTERM);
  EXPECT_EQ(run.client().exitStatus(10), 20) << run.client().err();
  EXPECT_NE(run.server().exitStatus(10), 0);
  EXPECT_TRUE(fs::is_empty(to_));
}

// As root may read everything, its server is one that may not.
TEST_F(Passes, WhatCouldNotBeReadIsLookedAtByTheNextPass) {
  if (::geteuid() != 0) GTEST_SKIP() << "NOT TESTED: this needs root";
  const std::string confined = rsyncRunBy(kMayNotReadEverything, tree_.path("confined"));
  const auto pass = [&](const std::string& server, int status,
                        const std::vector<std::string>& more) {
    ::usleep(100000);  // what is quite new is looked at again
    Transfer run(from_ + "/", to_, more);
    run.useServer(server);
    run.start(pipeChannel());
    run.expectBothEndWith(status);
  };
  for (const bool compares : {false, true}) {
    SCOPED_TRACE(compares);
    // Other exclusions than those of the last pass mean that everything is compared.
    const std::vector<std::string> first = {"--exclude=none"};
    const std::vector<std::string> then = compares ? std::vector<std::string>{} : first;
    for (const char* name : {"goes", "changes"})
      tree_.add(fileAt(std::string("from/") + name, "1"));
    pass(builtRsync(), 0, first);
    for (const char* name : {"goes", "changes"})
      tree_.add(fileAt(std::string("from/") + name, "later", 0));
    pass(confined, 23, then);
    EXPECT_EQ(test_support::readFile(to_ + "/changes"), "1");
    fs::remove(from_ + "/goes");
    pass(builtRsync(), 0, then);
    EXPECT_EQ(differences(to_, from_), "");
    pass(builtRsync(), 0, then);
    EXPECT_EQ(differences(to_, from_), "");
  }
}

TEST_F(Passes, OfALargeFileThatAComparingPassSentOnlyChangedBlocksAreSent) {
  tree_.add(fileAt("from/large", noise(20 << 20)));
  tree_.add(fileAt("to/large", "something else"));
  ::usleep(100000);
  sentBytes(from_, to_);
  std::ofstream(from_ + "/large", std::ios::in | std::ios::out).seekp(10000000).write("changed", 7);
  EXPECT_LT(sentBytes(from_, to_), 300000U);
  EXPECT_EQ(differences(to_, from_), "");
}

// The limit makes the first walk a long one. There is a second, as it brings what changed
// meanwhile, and it is the last, as it is short, though changes go on.
TEST_F(Passes, LongWalkIsFollowedByAnotherOne) {
  tree_.add(fileAt("from/d/early", "1"));
  std::ofstream(from_ + "/large") << noise(8 << 20);
  ::setenv("QX_RSYNC_BWLIMIT", "2000", 1);
  Transfer run(from_ + "/", to_);
  run.start(pipeChannel());
  for (int i = 0; i < 1000 && !fs::exists(to_ + "/d/early"); ++i) ::usleep(10000);
  ASSERT_TRUE(fs::exists(to_ + "/d/early"));
  std::ofstream(from_ + "/d/early") << "longer";
  std::ofstream(from_ + "/d/late") << "late";
  std::atomic<bool> stop{false};
  std::thread writer([&] {
    while (!stop) {
      std::ofstream(from_ + "/d/always", std::ios::app) << "more";
      ::usleep(20000);
    }
  });
  const auto began = std::chrono::steady_clock::now();
  run.expectBothEndWith(0);
  const auto took = std::chrono::steady_clock::now() - began;
  stop = true;
  writer.join();
  EXPECT_GT(took, std::chrono::seconds(2)) << "no walk was long";
  EXPECT_EQ(test_support::readFile(to_ + "/d/early"), "longer");
  EXPECT_EQ(test_support::readFile(to_ + "/d/late"), "late");
}

TEST_F(Passes, KilledClientLeavesTheEarlierFileAndTheNextOneNothingElse) {
  tree_.add(fileAt("from/d/large", "earlier"));
  const std::string exclusion = "--exclude=.*";
  transfer(from_ + "/", to_, {exclusion});
  ::setenv("QX_RSYNC_BWLIMIT", "500", 1);
  std::ofstream(from_ + "/d/large") << noise(8 << 20);
  Transfer run(from_ + "/", to_, {exclusion});
  run.start(pipeChannel());
  const auto entries = [&] { return std::distance(fs::directory_iterator(to_ + "/d"), {}); };
  for (int i = 0; i < 1000 && entries() < 2; ++i) ::usleep(10000);
  EXPECT_EQ(entries(), 2);
  const bool unfinished =
      std::any_of(fs::directory_iterator(to_ + "/d"), {}, [](const fs::directory_entry& entry) {
        return engine::isTemporaryName(entry.path().filename().string());
      });
  EXPECT_TRUE(unfinished);
  signalOne(run.client().pid(), SIGKILL);
  run.client().exitStatus(10);
  EXPECT_NE(run.server().exitStatus(10), 0);
  EXPECT_EQ(test_support::readFile(to_ + "/d/large"), "earlier");
  // It may or may not have come to tidying up.
  for (const char* directory : {"/d/", "/is gone/"}) {
    fs::create_directory(to_ + directory);
    std::ofstream(to_ + directory + engine::temporaryName()) << "left";
  }
  ::unsetenv("QX_RSYNC_BWLIMIT");
  transfer(from_ + "/", to_, {exclusion});
  EXPECT_EQ(differences(to_, from_), "");
}

TEST_F(Passes, LimitIsKept) {
  ::setenv("QX_RSYNC_BWLIMIT", "2000", 1);
  std::ofstream(from_ + "/large") << noise(4 << 20);  // or else it is compressed
  const auto began = std::chrono::steady_clock::now();
  transfer(from_ + "/", to_);
  EXPECT_GT(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(1500));
}

// On a node: the server knows nothing of it.
TEST_F(Passes, LimitOfTheClientIsKeptByTheServer) {
  std::ofstream(from_ + "/large") << noise(4 << 20);
  for (const char* engine : {"own", "stock"}) {
    ::setenv("QX_RSYNC_ENGINE", engine, 1);
    const std::string to = tree_.path(engine);
    tree_.add(dirAt(engine));
    Transfer run(from_ + "/", to);
    run.useClient(programWith("QX_RSYNC_BWLIMIT=2000"));
    const auto began = std::chrono::steady_clock::now();
    run.start(pipeChannel());
    run.expectBothEndWith(0);
    EXPECT_GT(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(1500)) << engine;
  }
}

TEST_F(Passes, ServerGivesWayWhenItIsAskedTo) {
  std::ofstream(from_ + "/large") << noise(8 << 20);
  for (const char* engine : {"own", "stock"}) {
    ::setenv("QX_RSYNC_ENGINE", engine, 1);
    const std::string to = tree_.path(engine);
    tree_.add(dirAt(engine));
    Transfer run(from_ + "/", to);
    run.useClient(programWith("QX_RSYNC_BWLIMIT=2000 QX_RSYNC_NICE=1"));
    run.start(pipeChannel());
    int nice = 0;
    for (int i = 0; i < 200 && nice == 0; ++i) {
      ::usleep(10000);
      nice = ::getpriority(PRIO_PROCESS, static_cast<id_t>(run.server().pid()));
    }
    EXPECT_EQ(nice, 19) << engine;
    const long disks = ::syscall(SYS_ioprio_get, host::kIoPriorityOfProcess, run.server().pid());
    EXPECT_EQ(disks | 7, host::ioPriority(host::kIoClassIdle, 7)) << engine;
    run.expectBothEndWith(0);
  }
}

TEST_F(Passes, LimitThatIsNoNumberIsNamed) {
  for (const char* value : {"QX_RSYNC_BWLIMIT=fast", "QX_RSYNC_NICE=very"}) {
    const std::string text = value;
    const size_t equals = text.find('=');
    Transfer run(from_ + "/", to_);
    run.useServer(programWith(text));
    run.start(pipeChannel());
    EXPECT_EQ(run.server().exitStatus(), 1);
    EXPECT_NE(run.server().err().find("'" + text.substr(equals + 1) + "' in " +
                                      text.substr(0, equals) + " is not "),
              std::string::npos)
        << run.server().err();
    EXPECT_EQ(run.client().exitStatus(), 12);
  }
}

TEST_F(Passes, FullDestinationEndsWithStocksStatus) {
  tree_.add(fileAt("from/large", std::string(4 << 20, 'x')));
  tree_.add(fileAt("client",
                   "#!/bin/sh\nexec unshare -m sh -c 'mount -t tmpfs -o size=1m none " + to_ +
                       " && exec \"$@\"' - " + builtRsync() + " \"$@\"\n",
                   0755));
  Transfer run(from_ + "/", to_);
  run.useClient(tree_.path("client"));
  run.start(pipeChannel());
  EXPECT_EQ(run.client().exitStatus(), 11);
  EXPECT_NE(run.client().err().find("'/large': cannot write it: No space left on device (28)"),
            std::string::npos)
      << run.client().err();
  EXPECT_NE(run.server().exitStatus(), 0);
}
