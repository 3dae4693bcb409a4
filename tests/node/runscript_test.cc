#include "node/runscript.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "host/error.h"
#include "host/file.h"
#include "host/mounts.h"
#include "host/text.h"
#include "node_test/system_tree.h"
#include "support/container_101.h"
#include "support/scratch_host.h"

namespace {

using node::Error;
using node::ExitCode;
using test_support::kConf;
using test_support::kTree;
using test_support::ScratchHost;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr char kScript[] = "/tmp/script";

struct ScriptRun {
  int status;
  std::string out;  // of the script, both streams
};

// Runs script text in container 101, whose tree must be there.
ScriptRun runScript(const std::string& text) {
  node::replaceFile(kScript, text, 0644);
  const int saved[] = {dup(1), dup(2)};
  const int out = open("/tmp/out", O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0644);
  fflush(stdout);
  dup2(out, 1);
  dup2(out, 2);
  close(out);
  ScriptRun run{-1, ""};
  std::string error;
  try {
    run.status = node::runScript(node::loadContainer(101), kScript);
  } catch (const Error& failure) {
    error = failure.what();
  }
  dup2(saved[0], 1);
  dup2(saved[1], 2);
  close(saved[0]);
  close(saved[1]);
  run.out = test_support::readFile("/tmp/out") + error;
  return run;
}

// A host with container 101, which has a shell and the named programs.
void onHost(const std::string& config, const std::vector<std::string>& programs,
            const std::function<void()>& body) {
  ScratchHost host;
  host.file(kConf, config).dir(kTree);
  host.run([&] {
    node_test::makeSystemTree(kTree, programs);
    body();
  });
}

TEST(ScriptInterpreter, IsTheOneOfTheFirstLine) {
  EXPECT_THAT(node::scriptInterpreter("echo\n"), ElementsAre("/bin/sh"));
  EXPECT_THAT(node::scriptInterpreter(""), ElementsAre("/bin/sh"));
  EXPECT_THAT(node::scriptInterpreter("#!/bin/bash\necho\n"), ElementsAre("/bin/bash"));
  EXPECT_THAT(node::scriptInterpreter("#! /usr/bin/env  perl -w \r\n"),
              ElementsAre("/usr/bin/env", "perl -w"));
  EXPECT_THAT(node::scriptInterpreter("#!/bin/sh"), ElementsAre("/bin/sh"));
  EXPECT_THROW(node::scriptInterpreter("#!\n"), Error);
  EXPECT_THROW(node::scriptInterpreter("#!sh\n"), Error);
}

TEST(RunScript, ExitStatusOutputAndSignalsPassThrough) {
  onHost("", {}, [] {
    const ScriptRun run = runScript("echo out; echo err >&2; exit 37\n");
    EXPECT_EQ(run.status, 37);
    EXPECT_EQ(run.out, "out\nerr\n");
    EXPECT_EQ(runScript("exit 0\n").status, 0);
    EXPECT_EQ(runScript("kill -9 $$\n").status, 128 + SIGKILL);
  });
}

TEST(RunScript, WorksInTheContainersFilesAndLeavesOnlyItsWork) {
  onHost("", {}, [] {
    const ScriptRun run = runScript("echo made > /etc-file; cd /; echo *\n");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(test_support::readFile(std::string(kTree) + "/etc-file"), "made\n");
    EXPECT_FALSE(node::exists("/etc-file"));
    // The mount points of /dev and /proc stay, empty; the script does not.
    EXPECT_THAT(node::listDirectory(std::string(kTree) + "/dev"), IsEmpty());
    EXPECT_THAT(node::listDirectory(std::string(kTree) + "/proc"), IsEmpty());
  });
}

TEST(RunScript, EnvironmentIsWhatTheConfigurationSaysAndNoMore) {
  onHost(
      "HOSTNAME=web.example.org\nIP_ADDRESS=\"192.0.2.7 2001:db8::7\"\nNAMESERVER=192.0.2.1\n"
      "DISTRIBUTION=debian-12\nOTHER=x\nNETIF=\"ifname=eth0,ip=192.0.2.7\"\n",
      {"env", "hostname"}, [] {
        setenv("SECRET", "of the host", 1);
        const std::string out = runScript("env; hostname\n").out;
        EXPECT_THAT(out, HasSubstr("VEID=101\n"));
        EXPECT_THAT(out, HasSubstr("HOSTNAME=web.example.org\n"));
        EXPECT_THAT(out, HasSubstr("IP_ADDRESS=192.0.2.7 2001:db8::7\n"));
        EXPECT_THAT(out, HasSubstr("NAMESERVER=192.0.2.1\n"));
        EXPECT_THAT(out, HasSubstr("NETIF=ifname=eth0,ip=192.0.2.7\n"));
        EXPECT_THAT(out, HasSubstr("DISTRIBUTION=debian-12\n"));
        EXPECT_THAT(out, HasSubstr("PATH=/usr/local/sbin:"));
        EXPECT_THAT(out, testing::Not(HasSubstr("SECRET")));
        EXPECT_THAT(out, testing::Not(HasSubstr("OTHER")));
        EXPECT_THAT(out, testing::EndsWith("\nweb.example.org\n"));
      });
}

TEST(RunScript, SeesOnlyItsOwnProcessesMountsDevicesAndNetwork) {
  onHost("", {"cat", "ls", "grep"}, [] {
    const ScriptRun mounts = runScript(
        "while read -r a b c d point rest; do echo \"$point\"; done < /proc/self/mountinfo\n");
    EXPECT_THAT(node::splitWords(mounts.out),
                UnorderedElementsAre("/", "/proc", "/dev", "/dev/null", "/dev/zero", "/dev/full",
                                     "/dev/random", "/dev/urandom", "/dev/tty"));
    EXPECT_EQ(runScript("cd /proc; for p in [0-9]*; do read x < $p/comm; echo $x; done\n").out,
              "node_test\nsh\n");
    EXPECT_EQ(runScript("cat /proc/net/dev | grep -c eth\n").out, "0\n");
    EXPECT_EQ(runScript("ls /dev\n").out,
              "fd\nfull\nnull\nqx-script\nrandom\nstderr\nstdin\nstdout\ntty\nurandom\nzero\n");
    EXPECT_EQ(runScript("ls /proc/self/fd\n").out, "0\n1\n2\n3\n");
    EXPECT_EQ(runScript("cat\n").out, "") << "standard input is not empty";
    EXPECT_EQ(runScript("echo x > /dev/null && echo fine\n").out, "fine\n");
  });
}

TEST(RunScript, CannotReachTheHost) {
  onHost("", {"mount", "mknod", "umount", "cat"}, [] {
    EXPECT_NE(runScript("mknod /disk b 8 0 2>/dev/null\n").status, 0);
    EXPECT_NE(runScript("mount -t tmpfs none /dev 2>/dev/null\n").status, 0);
    EXPECT_NE(runScript("umount /dev 2>/dev/null\n").status, 0);
    EXPECT_NE(runScript("echo x > /proc/sys/kernel/hostname\n").status, 0);
    EXPECT_NE(runScript("echo b > /proc/sysrq-trigger\n").status, 0);
  });
}

TEST(RunScript, ItsFirstProcessShowsNothingOfTheAdministrators) {
  onHost("", {"cat", "ls", "tr"}, [] {
    setenv("SECRET", "of the administrator", 1);
    EXPECT_EQ(runScript("tr -d '\\0' < /proc/1/environ\n").out.find("SECRET"), std::string::npos);
    const std::string out = runScript("cat /proc/1/mem; cat /proc/1/environ; ls /proc/1/fd\n").out;
    EXPECT_THAT(out, testing::Not(HasSubstr("of the administrator")));
    EXPECT_THAT(out, HasSubstr("Permission denied"));
    EXPECT_EQ(runScript("while read -r a b; do case $a in CapBnd: | NoNewPrivs: | Seccomp:)\n"
                        "echo $a $b;; esac; done < /proc/self/status\n")
                  .out,
              "CapBnd: 00000000800400db\nNoNewPrivs: 1\nSeccomp: 2\n");
  });
}

TEST(RunScript, OutputDrivesNoTerminalAndHasNone) {
  onHost("", {"cat"}, [] {
    EXPECT_EQ(runScript("printf 'a\\033[2Jb\\n\\302\\233c\\r'\n").out, "a\\x1b[2Jb\n\\x9bc\\r");
    EXPECT_NE(runScript("cat < /dev/tty\n").status, 0);
    EXPECT_EQ(runScript("echo x > /dev/stderr\n").out, "x\n");
    EXPECT_EQ(runScript("echo y > /dev/stdout\n").out, "y\n");
    EXPECT_EQ(runScript("[ -t 0 ] || [ -t 1 ] || [ -t 2 ] || echo none\n").out, "none\n");
  });
}

TEST(RunScript, RunsAsNobodyOfTheHostWhereTheContainersRootIsNobody) {
  onHost("UNPRIVILEGED=yes\n", {"id", "chown", "stat", "ls"}, [] {
    const ScriptRun run = runScript(
        "id -u; echo made > /file && chown 7:8 /file && stat -c %u:%g /file\n"
        "read a b c < /proc/self/uid_map; echo $a $b $c; stat -c %u /proc/1\n"
        "echo y > /dev/null && echo x > /dev/stdout\n");
    EXPECT_EQ(run.out, "0\n7:8\n0 1000000 65536\n65534\nx\n");
    EXPECT_EQ(run.status, 0);
    struct stat st;
    ASSERT_EQ(stat((std::string(kTree) + "/file").c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, 7u);
    EXPECT_EQ(st.st_gid, 8u);
  });
}

TEST(RunScript, DeviceFilesOfTheCopiedSystemDoNotWork) {
  onHost("", {"cat"}, [] {
    if (mknod((std::string(kTree) + "/null").c_str(), S_IFCHR | 0666, makedev(1, 3)) != 0) {
      GTEST_SKIP() << "making a device file needs root of the machine: " << strerror(errno);
    }
    EXPECT_NE(runScript("cat /null\n").status, 0);
    EXPECT_EQ(runScript("cat /dev/null\n").status, 0);
  });
}

TEST(RunScript, LinksOfTheContainerDoNotLeadOutOfIt) {
  ScratchHost host;
  host.file(kConf, "").dir(kTree).file("/outside/file", "kept");
  host.symlink(std::string(kTree) + "/dev", "/outside");
  host.symlink(std::string(kTree) + "/proc", "../../../../../../outside");
  host.run([] {
    node_test::makeSystemTree(kTree);
    node::makeDirectories(std::string(kTree) + "/outside");
    runScript("echo x > /outside/new\n");
    EXPECT_THAT(node::listDirectory("/outside"), ElementsAre("file"));
    EXPECT_THAT(node::countMountsAt(node::mountPoints(), "/outside"), 0u);
  });
}

TEST(RunScript, ProcessesLeftRunningAreKilled) {
  onHost("", {"sleep"}, [] {
    EXPECT_EQ(runScript("sleep 1000 & sleep 1000 & echo started\n").out, "started\n");
    int processes = 0;
    for (const std::string& name : node::listDirectory("/proc")) {
      const auto command = node::readFile("/proc/" + name + "/comm");
      processes += command == "sleep\n";
    }
    EXPECT_EQ(processes, 0);
  });
}

TEST(RunScript, EverythingEndsWithTheProcessThatRunsIt) {
  onHost("", {"sleep"}, [] {
    node::replaceFile(kScript, "echo > /started; sleep 1000\n", 0644);
    const pid_t runner = fork();
    if (runner == 0) {
      node::runScript(node::loadContainer(101), kScript);
      _exit(0);
    }
    const std::string started = std::string(kTree) + "/started";
    for (int i = 0; i < 1000 && !node::exists(started); ++i) usleep(10000);
    ASSERT_TRUE(node::exists(started));
    kill(runner, SIGKILL);
    waitpid(runner, nullptr, 0);
    const auto sleeping = [] {
      for (const std::string& name : node::listDirectory("/proc")) {
        if (node::readFile("/proc/" + name + "/comm") == "sleep\n") return true;
      }
      return false;
    };
    for (int i = 0; i < 500 && sleeping(); ++i) usleep(10000);
    EXPECT_FALSE(sleeping());
  });
}

TEST(RunScript, MountedContainerStaysMounted) {
  onHost("", {}, [] {
    const std::vector<std::string> before = node::mountPoints();
    runScript("true\n");
    EXPECT_EQ(node::mountPoints(), before);
  });
}

TEST(RunScript, WhatCannotBeRunIsSaidClearly) {
  onHost("", {}, [] {
    EXPECT_EQ(runScript("#!/usr/bin/none\n").out,
              "cannot run /usr/bin/none in the container: No such file or directory");
    try {
      node::runScript(node::loadContainer(101), "/no/script");
      FAIL() << "accepted";
    } catch (const Error& error) {
      EXPECT_EQ(error.code(), ExitCode::kNotFound);
      EXPECT_STREQ(error.what(), "cannot read the script /no/script: No such file or directory");
    }
  });
  ScratchHost().file(kConf, "").run(
      [] { EXPECT_THAT(runScript("true\n").out, HasSubstr("container 101 has no file tree")); });
}

}  // namespace
