#include "support/scratch_host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cassert>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;
using namespace test_support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

int shell(const std::string& command) {
  const int status = std::system(command.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

TEST(ScratchHost, FilesLinksAndDirectoriesAreAtTheirAbsolutePaths) {
  ScratchHost host;
  host.file("/etc/mtab", "here\n").symlink("/etc/link", "mtab").dir("/vz/private", 0700);
  host.run([] {
    EXPECT_EQ(readFile("/etc/mtab"), "here\n");
    EXPECT_EQ(readFile("/etc/link"), "here\n");
    struct stat info;
    ASSERT_EQ(stat("/vz/private", &info), 0);
    EXPECT_EQ(info.st_mode, S_IFDIR | 0700u);
    EXPECT_EQ(fs::current_path(), "/");
  });
  EXPECT_FALSE(fs::exists("/vz/private"));
}

TEST(ScratchHost, FilesOfTheMachineAreNotThere) {
  const TempTree tree({fileAt("secret", "1")});
  ScratchHost host;
  host.run([&] {
    EXPECT_FALSE(fs::exists(tree.path("secret")));
    EXPECT_FALSE(fs::exists("/etc/hostname"));
  });
}

TEST(ScratchHost, LinkOfTheTestDoesNotLeadOutOfTheScratchHost) {
  const TempTree tree;
  ScratchHost host;
  host.dir(tree.root()).symlink("/link", tree.root()).file("/link/written", "x");
  host.run([&] { EXPECT_EQ(readFile(tree.path("written")), "x"); });
  EXPECT_FALSE(fs::exists(tree.path("written")));
}

TEST(ScratchHost, WhatTheBodyWritesStaysInTheScratchHost) {
  ScratchHost host;
  host.run([] {
    std::ofstream("/usr/qxtest-of-the-scratch-host") << "x";
    std::ofstream("/etc/qxtest-of-the-scratch-host") << "x";
    EXPECT_TRUE(fs::exists("/usr/qxtest-of-the-scratch-host"));
  });
  EXPECT_FALSE(fs::exists("/usr/qxtest-of-the-scratch-host"));
  EXPECT_FALSE(fs::exists("/etc/qxtest-of-the-scratch-host"));
}

TEST(ScratchHost, ProgramsOfTheMachineRun) {
  ScratchHost host;
  host.run([] {
    EXPECT_EQ(shell("ls / | grep -q usr && awk 'BEGIN { exit 7 }' < /dev/null"), 7);
    EXPECT_EQ(shell("test \"$(id -un)\" = root"), 0);
  });
}

TEST(ScratchHost, CallsOfFakeToolsAreLoggedInOrder) {
  ScratchHost host;
  host.tool("/usr/sbin/qxctl").tool("/etc/init.d/httpd");
  host.run([&] {
    EXPECT_THAT(host.calls(), IsEmpty());
    EXPECT_EQ(shell("qxctl stop 101"), 0);
    EXPECT_EQ(shell("/etc/init.d/httpd stop"), 0);
    EXPECT_THAT(host.calls(), ElementsAre("/usr/sbin/qxctl\tstop\t101", "/etc/init.d/httpd\tstop"));
    host.clearCalls();
    EXPECT_EQ(shell("qxctl"), 0);
    EXPECT_THAT(host.calls(), ElementsAre("/usr/sbin/qxctl"));
  });
}

TEST(ScratchHost, ArgumentsInTheLogAreUnambiguous) {
  ScratchHost host;
  host.tool("/usr/bin/tool");
  host.run([&] {
    EXPECT_EQ(shell(R"(tool 'a b' '' 'c	d' 'e\tf' 'g
h' '%s' "it's")"),
              0);
    EXPECT_THAT(host.calls(), ElementsAre("/usr/bin/tool\ta b\t\tc\\td\te\\\\tf\tg\\nh\t%s\tit's"));
    EXPECT_THAT(host.callWords(), ElementsAre(ElementsAre("/usr/bin/tool", "a b", "", "c\td",
                                                          "e\\tf", "g\nh", "%s", "it's")));
  });
}

TEST(ScratchHost, FakeToolPrintsAndEndsAsTold) {
  ScratchHost host;
  host.tool("/sbin/mkqxfs", {.status = 3, .out = "it's %s\\n\n", .err = "bad\n"});
  host.run([] {
    EXPECT_EQ(shell("/sbin/mkqxfs > /tmp/out 2> /tmp/err"), 3);
    EXPECT_EQ(readFile("/tmp/out"), "it's %s\\n\n");
    EXPECT_EQ(readFile("/tmp/err"), "bad\n");
  });
}

TEST(ScratchHost, ScriptOfAFakeToolSeesItsArguments) {
  ScratchHost host;
  host.tool("/sbin/t", {.script = "case $1 in create) mkdir \"/tmp/$2\" ;; *) exit 9 ;; esac"});
  host.run([] {
    EXPECT_EQ(shell("/sbin/t create 'a b'"), 0);
    EXPECT_TRUE(fs::is_directory("/tmp/a b"));
    EXPECT_EQ(shell("/sbin/t other"), 9);
  });
}

TEST(ScratchHost, FakeToolTakesThePlaceOfARealProgram) {
  ScratchHost host;
  host.tool("/usr/bin/df", {.out = "faked\n"});
  host.run([] {
    EXPECT_EQ(shell("test \"$(df /)\" = faked"), 0);
    EXPECT_EQ(shell("test \"$(/bin/df /)\" = faked"), 0);
  });
}

TEST(ScratchHost, FileInProcCoversTheRealOne) {
  ScratchHost host;
  host.file("/proc/sys/kernel/core_uses_pid", "fake");
  host.run([] { EXPECT_EQ(readFile("/proc/sys/kernel/core_uses_pid"), "fake"); });
  EXPECT_NE(readFile("/proc/sys/kernel/core_uses_pid"), "fake");
}

TEST(ScratchHost, ProcessesLeftBehindEndWithTheBody) {
  const TempTree tree;
  ScratchHost host;
  // Were it to live on, it would hold the pipe that run() reads to its end.
  host.run([] {
    if (fork() == 0) {
      for (;;) pause();
    }
  });
}

TEST(ScratchHost, MachineSeesNoMountOfTheScratchHost) {
  const std::string before = readFile("/proc/self/mounts");
  ScratchHost host;
  host.run([&] { EXPECT_NE(readFile("/proc/self/mounts"), before); });
  EXPECT_EQ(readFile("/proc/self/mounts"), before);
}

TEST(ScratchHost, FailureInTheBodyFailsTheTest) {
  const auto results = collectChildTest(
      {.enter = {},
       .body = [] { ScratchHost().run([] { EXPECT_TRUE(false) << "the reason"; }); },
       .expectAbort = false,
       .abortText = ""});
  ASSERT_EQ(results.size(), 1u);
  EXPECT_THAT(results[0].text, HasSubstr("the reason"));
}

TEST(ScratchHost, CrashInTheBodyFailsTheTest) {
  const auto results = collectChildTest({.enter = {},
                                         .body = [] { ScratchHost().run([] { raise(SIGUSR2); }); },
                                         .expectAbort = false,
                                         .abortText = ""});
  ASSERT_EQ(results.size(), 1u);
  EXPECT_THAT(results[0].text, HasSubstr("killed by signal"));
}

TEST(ScratchHost, FileThatCannotBeMadeFailsTheTest) {
  const auto results =
      collectChildTest({.enter = {},
                        .body = [] { ScratchHost().file("/dev/null/x", "").run([] {}); },
                        .expectAbort = false,
                        .abortText = ""});
  ASSERT_EQ(results.size(), 1u);
  EXPECT_THAT(results[0].text, HasSubstr("/dev/null"));
}

TEST(ScratchHost, ExpectedAbortPasses) {
  ScratchHost().runExpectingAbort(
      [] {
        const void* px = nullptr;
        assert(px != 0);
      },
      "px != 0");
}

TEST(ScratchHost, RunsAgainOnAFreshHost) {
  ScratchHost host;
  for (int i = 0; i < 2; ++i) {
    host.run([] {
      EXPECT_FALSE(fs::exists("/tmp/mark"));
      std::ofstream("/tmp/mark") << "x";
    });
  }
}
