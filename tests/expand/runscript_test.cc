#include "expand/runscript.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "expand/error.h"
#include "support/child_test.h"
#include "support/failing_call.h"
#include "support/temp_tree.h"

using Expand::runscript;
using namespace test_support;

TEST(Runscript, ExitStatusComesBackWithEmptyOutput) {
  std::string out = "earlier";
  std::string err = "earlier";
  EXPECT_EQ(runscript("exit 3", out, err), 3);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, "");
}

TEST(Runscript, BothOutputsAreCollected) {
  std::string out;
  std::string err;
  EXPECT_EQ(runscript("echo a b | tr a-z A-Z; echo oops >&2", out, err), 0);
  EXPECT_EQ(out, "A B\n");
  EXPECT_EQ(err, "oops\n");
}

TEST(Runscript, KilledCommandGivesMinusOne) {
  std::string out;
  std::string err;
  EXPECT_EQ(runscript("kill -KILL $$", out, err), -1);
}

TEST(Runscript, OutputHasNoLimit) {
  std::string out;
  std::string err;
  EXPECT_EQ(runscript("head -c 3000000 /dev/zero; head -c 2000000 /dev/zero >&2", out, err), 0);
  EXPECT_EQ(out.size(), 3000000u);
  EXPECT_EQ(err.size(), 2000000u);
}

TEST(Runscript, StandardInputIsClosed) {
  std::string out;
  std::string err;
  EXPECT_EQ(runscript("test -e /proc/$$/fd/0", out, err), 1);
}

TEST(Runscript, EnvironmentIsThatOfTheProcessInItsOrder) {
  runInChild([] {
    static char path[] = "PATH=/usr/bin:/bin";
    static char z[] = "Z=last letter";
    static char a[] = "A=first=letter";
    static char odd[] = "no equals sign";
    char* entries[] = {z, path, odd, a, nullptr};
    char** const saved = environ;
    environ = entries;
    std::string out;
    std::string err;
    EXPECT_EQ(runscript("tr '\\0' '\\n' < /proc/$$/environ", out, err), 0);
    environ = saved;
    EXPECT_EQ(out, "Z=last letter\nPATH=/usr/bin:/bin\nno equals sign\nA=first=letter\n");
  });
}

TEST(Runscript, ShellIsFoundAlongThePathOfTheProcess) {
  const TempTree tree({fileAt("sh", "#!/bin/sh\necho \"$@\"\nexit 9\n", 0755)});
  runInChild([&] {
    setenv("PATH", (tree.root() + ":/bin").c_str(), 1);
    std::string out;
    std::string err;
    EXPECT_EQ(runscript("some command", out, err), 9);
    EXPECT_EQ(out, "-c some command\n");
  });
}

TEST(Runscript, MissingShellIsStatusOne) {
  runInChild([] {
    setenv("PATH", "/nonexistent", 1);
    std::string out;
    std::string err;
    EXPECT_EQ(runscript("true", out, err), 1);
    EXPECT_EQ(err, "expand_test: Can't execute sh: No such file or directory\n");
  });
}

TEST(Runscript, ProcessWithoutEnvironmentHasNoPathForTheShell) {
  const TempTree tree({fileAt("sh", "#!/bin/sh\nexit 9\n", 0755)});
  runInChild([&] {
    clearenv();
    ASSERT_EQ(chdir(tree.root().c_str()), 0);
    std::string out;
    std::string err;
    EXPECT_EQ(runscript("true", out, err), 9);
  });
}

TEST(Runscript, ErrorsOfTheRunnerPropagate) {
  runInChild([] {
    failSystemCall(SYS_pipe2, EMFILE, CallArgument{1, O_CLOEXEC});
    std::string out = "earlier";
    std::string err;
    EXPECT_THROW(runscript("true", out, err), Expand::Error);
    EXPECT_EQ(out, "earlier");
  });
}
