#include "host/lock.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/error.h"
#include "host/file.h"
#include "host/text.h"
#include "support/temp_tree.h"

namespace {

using host::ContainerLock;
using host::parseLockHolder;
using testing::ElementsAre;
using testing::IsEmpty;

pid_t endedProcess() {
  const pid_t pid = fork();
  if (pid == 0) _exit(0);
  waitpid(pid, nullptr, 0);
  return pid;
}

TEST(LockHolder, IsThePositiveNumberOnTheFirstLine) {
  EXPECT_EQ(parseLockHolder("123\nmigrating\n"), 123);
  EXPECT_EQ(parseLockHolder(" 7 x\n"), 7);
  for (const char* content : {"", "\n123\n", "abc\n", "0\n", "-5\n", "99999999999\n"}) {
    EXPECT_FALSE(parseLockHolder(content)) << content;
  }
}

TEST(ContainerLock, FileHoldsPidAndStatusAndGoesAwayAtTheEnd) {
  test_support::TempTree tree;
  const std::string dir = tree.path("new/lock");
  {
    ContainerLock lock(dir, 101, "mounting");
    EXPECT_EQ(test_support::readFile(dir + "/101.lck"), host::textf("%d\nmounting\n", getpid()));
    EXPECT_THAT(host::listDirectory(dir), ElementsAre("101.lck"));
    struct stat st;
    ASSERT_EQ(stat((dir + "/101.lck").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0644u);
  }
  EXPECT_THAT(host::listDirectory(dir), IsEmpty());
}

TEST(ContainerLock, LiveHolderIsRefusedByNameAndKeepsItsLock) {
  test_support::TempTree tree(
      {test_support::fileAt("101.lck", host::textf("%d\nmigrating\n", getppid()))});
  try {
    ContainerLock lock(tree.root(), 101, "mounting");
    FAIL() << "the lock was taken";
  } catch (const host::Error& error) {
    EXPECT_EQ(error.code(), host::ExitCode::kLocked);
    EXPECT_EQ(error.what(),
              host::textf("container 101 is locked by process %d (migrating)", getppid()));
  }
  EXPECT_THAT(host::listDirectory(tree.root()), ElementsAre("101.lck"));
}

TEST(ContainerLock, StaleLockIsRemovedAndTaken) {
  for (const std::string& content : {host::textf("%d\nmigrating\n", endedProcess()),
                                     std::string("no number\n"), std::string()}) {
    test_support::TempTree tree({test_support::fileAt("101.lck", content)});
    ContainerLock lock(tree.root(), 101, "mounting");
    EXPECT_EQ(test_support::readFile(tree.path("101.lck")),
              host::textf("%d\nmounting\n", getpid()));
  }
}

TEST(ContainerLock, OtherContainersAreFree) {
  test_support::TempTree tree;
  ContainerLock first(tree.root(), 101, "mounting");
  ContainerLock second(tree.root(), 102, "mounting");
  EXPECT_THAT(host::listDirectory(tree.root()), ElementsAre("101.lck", "102.lck"));
}

TEST(ContainerLock, OnlyOneOfManyProcessesTakesAStaleLock) {
  test_support::TempTree tree(
      {test_support::fileAt("101.lck", host::textf("%d\nmigrating\n", endedProcess()))});
  int go[2], done[2];
  ASSERT_EQ(pipe(go), 0);
  ASSERT_EQ(pipe(done), 0);
  constexpr int kProcesses = 20;
  std::vector<pid_t> children;
  for (int i = 0; i < kProcesses; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      char byte;
      close(go[1]);
      close(done[1]);
      if (read(go[0], &byte, 1) != 0) _exit(2);
      try {
        ContainerLock lock(tree.root(), 101, "racing");
        // Hold it until every process has tried.
        if (read(done[0], &byte, 1) != 0) _exit(2);
        _exit(1);  // Without the destructor: the parent counts the holders.
      } catch (const host::Error&) {
        _exit(0);
      }
    }
    children.push_back(child);
  }
  close(go[0]);
  close(go[1]);  // Start them all.
  int losers = 0;
  int holders = 0;
  while (losers < kProcesses - 1) {
    int status = 0;
    ASSERT_GT(wait(&status), 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    ++losers;
  }
  close(done[0]);
  close(done[1]);
  int status = 0;
  while (wait(&status) > 0) holders += WIFEXITED(status) && WEXITSTATUS(status) == 1;
  EXPECT_EQ(holders, 1);
}

TEST(ContainerLock, DirectoryIsForItsOwnerOnly) {
  test_support::TempTree tree;
  const std::string dir = tree.path("lock");
  ContainerLock lock(dir, 101, "mounting");
  struct stat st;
  ASSERT_EQ(stat(dir.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0700u);
}

TEST(ContainerLock, DirectoryOfOthersIsRefused) {
  test_support::TempTree tree;
  const std::string dir = tree.path("lock");
  ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
  ASSERT_EQ(chmod(dir.c_str(), 01777), 0);
  try {
    ContainerLock lock(dir, 101, "mounting");
    FAIL() << "accepted";
  } catch (const host::Error& error) {
    EXPECT_EQ(error.code(), host::ExitCode::kBadConfig);
    EXPECT_THAT(error.what(), testing::HasSubstr("mode 1777"));
  }
  ASSERT_EQ(chmod(dir.c_str(), 0700), 0);
  ASSERT_EQ(symlink(dir.c_str(), tree.path("link").c_str()), 0);
  EXPECT_THROW(ContainerLock(tree.path("link"), 101, "mounting"), host::Error);
}

TEST(ContainerLock, WhatStandsInItsPlaceIsNeitherWaitedForNorFollowed) {
  test_support::TempTree tree;
  const std::string dir = tree.path("lock");
  ASSERT_EQ(mkdir(dir.c_str(), 0700), 0);
  const std::string live = tree.path("live");
  host::replaceFile(live, host::textf("%d\nbusy\n", getpid()), 0644);
  ASSERT_EQ(mkfifo((dir + "/101.lck").c_str(), 0600), 0);
  ASSERT_EQ(symlink(live.c_str(), (dir + "/102.lck").c_str()), 0);
  for (const unsigned id : {101u, 102u}) {
    ContainerLock lock(dir, id, "mounting");
    struct stat st;
    ASSERT_EQ(lstat((dir + host::textf("/%u.lck", id)).c_str(), &st), 0);
    EXPECT_TRUE(S_ISREG(st.st_mode));
  }
}

TEST(ContainerLock, DirectoryThatSomebodyKeepsLockedIsSaid) {
  test_support::TempTree tree;
  const std::string dir = tree.path("lock");
  ASSERT_EQ(mkdir(dir.c_str(), 0700), 0);
  const host::Fd holder(open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(flock(holder.get(), LOCK_EX), 0);
  try {
    ContainerLock lock(dir, 101, "mounting");
    FAIL() << "taken";
  } catch (const host::Error& error) {
    EXPECT_EQ(error.code(), host::ExitCode::kLocked);
  }
}

}  // namespace
