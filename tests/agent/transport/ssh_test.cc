// Reaching servers by ssh: addresses, explanations, and the program that receives
// the agent, run by a real shell on a host of the test's own.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "agent/transport/bootstrap.h"
#include "agent/transport/bundle.h"
#include "agent/transport/ssh_address.h"
#include "agent/transport/ssh_login.h"
#include "agent/transport/ssh_problem.h"
#include "framework/errors.h"
#include "support/scratch_host.h"
#include "support/temp_tree.h"

namespace {

using test_support::ScratchHost;
using testing::HasSubstr;

std::string described(const std::string& text) {
  try {
    const agent::SshAddress address = agent::parseSshAddress(text);
    return address.user + "|" + address.host + "|" + std::to_string(address.port);
  } catch (const std::runtime_error& problem) {
    return problem.what();
  }
}

TEST(SshAddress, AllFormsAreRead) {
  EXPECT_EQ(described("web"), "|web|0");
  EXPECT_EQ(described("root@web"), "root|web|0");
  EXPECT_EQ(described("web.example.org:2222"), "|web.example.org|2222");
  EXPECT_EQ(described("ssh://admin@192.0.2.1:22"), "admin|192.0.2.1|22");
  EXPECT_EQ(described("ssh://web/"), "|web|0");
  EXPECT_EQ(described("2001:db8::1"), "|2001:db8::1|0");
  EXPECT_EQ(described("root@[2001:db8::1]:22"), "root|2001:db8::1|22");
  EXPECT_EQ(described("[2001:db8::1]"), "|2001:db8::1|0");
}

TEST(SshAddress, WhatSshOrAShellWouldMisunderstandIsRefused) {
  EXPECT_EQ(described(""),
            "'' is not a valid address of a server: the host name is not a plain name");
  EXPECT_EQ(
      described("-oProxyCommand=x"),
      "'-oProxyCommand=x' is not a valid address of a server: the host name is not a plain name");
  EXPECT_EQ(described("a b"),
            "'a b' is not a valid address of a server: the host name is not a plain name");
  EXPECT_EQ(described("-x@web"),
            "'-x@web' is not a valid address of a server: the user name is not a plain name");
  EXPECT_EQ(described("@web"),
            "'@web' is not a valid address of a server: the user name is not a plain name");
  EXPECT_EQ(described("web:0"),
            "'web:0' is not a valid address of a server: the port is not between 1 and 65535");
  EXPECT_EQ(described("web:65536"),
            "'web:65536' is not a valid address of a server: the port is not between 1 and 65535");
  EXPECT_EQ(described("web:ssh"),
            "'web:ssh' is not a valid address of a server: the port is not between 1 and 65535");
  EXPECT_EQ(described("[::1"),
            "'[::1' is not a valid address of a server: the bracket is not closed");
  EXPECT_EQ(described("[::1]x"),
            "'[::1]x' is not a valid address of a server: something stands behind the bracket");
}

TEST(SshProblem, KnownFailuresGetAHintAndSshsOwnWords) {
  const auto explain = [](const std::string& said) {
    return agent::explainSshFailure("root@web", said, 255 << 8);
  };
  EXPECT_THAT(explain("Host key verification failed.\r\n"),
              testing::AllOf(HasSubstr("the host key of root@web is not known: connect once"),
                             HasSubstr("\nssh said: Host key verification failed.")));
  EXPECT_THAT(explain("@ WARNING: REMOTE HOST IDENTIFICATION HAS CHANGED! @\nHost key verification "
                      "failed.\n"),
              HasSubstr("the host key of root@web has changed"));
  EXPECT_THAT(explain("Timeout, server web not responding.\r\n"),
              HasSubstr("root@web does not answer any more"));
  EXPECT_THAT(
      explain("Connection timed out during banner exchange\r\nConnection to 192.0.2.11 port "
              "22 timed out\r\n"),
      HasSubstr("root@web takes the connection, but does not answer"));
  EXPECT_THAT(explain("ssh: Could not resolve hostname web: Name or service not known"),
              HasSubstr("the host of root@web is not known"));
  EXPECT_THAT(explain("ssh: connect to host web port 22: Connection refused"),
              HasSubstr("root@web refuses the connection"));
  EXPECT_THAT(explain("ssh: connect to host web port 22: Connection timed out"),
              HasSubstr("root@web does not answer"));
  EXPECT_THAT(explain("ssh: connect to host web port 22: No route to host"),
              HasSubstr("there is no route to root@web"));
  EXPECT_THAT(explain("root@web: Permission denied (publickey,password)."),
              HasSubstr("root@web refused the login"));
  EXPECT_THAT(explain("sudo: a password is required"), HasSubstr("no root rights on root@web"));
  EXPECT_THAT(
      explain("/bin/sh: 1: exec: sudo: not found"),
      HasSubstr("no root rights on root@web: the account is not root, and there is no sudo"));
}

TEST(SshProblem, OtherFailuresAreToldAsTheyAre) {
  EXPECT_EQ(agent::explainSshFailure("web", "what?\n\n", 255 << 8),
            "cannot work on web: ssh ended with status 255\nssh said: what?");
  EXPECT_EQ(agent::explainSshFailure("web", "", 9),
            "cannot work on web: ssh was ended by signal 9");
}

TEST(SshProblem, ARefusingServerIsExplained) {
  const auto explain = [](const char* word, const char* detail) {
    return agent::explainBootstrapFailure("root@web", word, detail);
  };
  EXPECT_THAT(explain("live", "4711"),
              HasSubstr("another migration of root@web is running: process 4711 there"));
  EXPECT_THAT(explain("root", "1000"), HasSubstr("no root rights on root@web"));
  EXPECT_THAT(explain("machine", "aarch64"), HasSubstr("processor 'aarch64'"));
  EXPECT_THAT(explain("kernel", "2.6.32"), HasSubstr("kernel 2.6.32: it must be 3.2 or newer"));
  EXPECT_THAT(explain("space", "1024"), HasSubstr("1024 KiB are free"));
  EXPECT_THAT(explain("noexec", ""), HasSubstr("mounted noexec"));
  EXPECT_THAT(explain("digest", ""), HasSubstr("damaged on its way to root@web"));
  EXPECT_THAT(explain("tool", "tar"), HasSubstr("lacks the program tar"));
  EXPECT_THAT(explain("unpack", "tar: no"),
              HasSubstr("could not be unpacked on root@web: tar: no"));
  EXPECT_THAT(explain("directory", "x"), HasSubstr("cannot make /var/qxagent.tmp on root@web: x"));
}

// A bundle whose "loader" is a shell script: it shows that the program was run as
// the agent is, and does what `action` says.
std::string makeBundle(const std::string& action) {
  std::filesystem::create_directories("/tmp/b/lib");
  std::filesystem::create_directories("/tmp/b/bin");
  std::filesystem::copy(QX_GUARD, "/tmp/b/bin/guard.sh",
                        std::filesystem::copy_options::overwrite_existing);
  std::ofstream("/tmp/b/lib/ld-linux-x86-64.so.2")
      << "#!/bin/sh\necho \"agent: $*; tmp $QXA_TMPDIR; node $QX_RSYNC_NODE; in $(cat)\"\n"
      << action << "\n";
  chmod("/tmp/b/lib/ld-linux-x86-64.so.2", 0755);
  EXPECT_EQ(system("tar -C /tmp/b -czf /tmp/bundle .; sha256sum </tmp/bundle | cut -c1-64 | "
                   "tr -d '\\n' >/tmp/digest"),
            0);
  return test_support::readFile("/tmp/digest");
}

struct BootstrapResult {
  std::string output;
  int status = 0;
};

// Runs the remote command as sshd does, by a login shell, with the bundle and
// then "more" on its input.
BootstrapResult bootstrap(const std::string& digest, uint64_t bytes = 0) {
  if (bytes == 0) bytes = std::filesystem::file_size("/tmp/bundle");
  std::ofstream("/tmp/command") << agent::bootstrapCommand(bytes, digest);
  BootstrapResult result;
  FILE* shell =
      popen("{ cat /tmp/bundle; printf more; } | sh -c \"$(cat /tmp/command)\" 2>&1", "r");
  char buffer[4096];
  size_t count;
  while ((count = fread(buffer, 1, sizeof buffer, shell)) > 0) result.output.append(buffer, count);
  result.status = pclose(shell);
  return result;
}

bool left() { return std::filesystem::exists("/var/qxagent.tmp"); }

TEST(Bootstrap, TheAgentIsUnpackedRunAndRemoved) {
  ScratchHost().run([]() {
    const std::string digest = makeBundle("stat -c %a /var/qxagent.tmp; exit 7");
    const BootstrapResult result = bootstrap(digest);
    EXPECT_EQ(result.output,
              "QX send\nQX run\n"
              "agent: --library-path /var/qxagent.tmp/lib /var/qxagent.tmp/bin/qxagent serve "
              "--stdio; tmp /var/qxagent.tmp; node ; in more\n700\n");
    EXPECT_EQ(WEXITSTATUS(result.status), 7);
    EXPECT_FALSE(left());
  });
}

// As sshd tells it to the login. The imitation of sudo clears the environment, as sudo does.
TEST(Bootstrap, TheAgentKnowsWhereSshComesFromEvenThroughSudo) {
  ScratchHost host;
  host.file("/tmp/bin/id", "#!/bin/sh\n[ -e /tmp/is-root ] && echo 0 || echo 1000\n", 0755);
  host.file("/tmp/bin/sudo",
            "#!/bin/sh\nshift 2; >/tmp/is-root; exec env -i \"PATH=$PATH\" \"$@\"\n", 0755);
  host.run([]() {
    const std::string digest = makeBundle("");
    setenv("PATH", ("/tmp/bin:" + std::string(getenv("PATH"))).c_str(), 1);
    setenv("SSH_CONNECTION", "2001:db8::7 50022 2001:db8::2 22", 1);
    for (const char* how : {"by sudo", "as root"}) {
      EXPECT_THAT(bootstrap(digest).output, HasSubstr("node 2001:db8::7; in")) << how;
    }
    unsetenv("SSH_CONNECTION");
    EXPECT_THAT(bootstrap(digest).output, HasSubstr("node ; in"));
  });
}

TEST(Bootstrap, ServicesOfAKilledAgentAreStartedAgain) {
  ScratchHost host;
  host.tool("/etc/init.d/one");
  host.tool("/etc/init.d/two", {.status = 1});
  host.run([&]() {
    const std::string digest = makeBundle(
        "{ cat /proc/sys/kernel/random/boot_id; printf 'two\none\n'; } "
        ">/var/qxagent.tmp/stopped-services; kill -9 $$");
    bootstrap(digest);
    EXPECT_THAT(host.calls(),
                testing::ElementsAre("/etc/init.d/two\tstart", "/etc/init.d/one\tstart"));
    EXPECT_FALSE(left());
  });
}

// What a run that died has left, in the agent's folder or in that of a guard at its work.
ScratchHost hostWithLeft(const std::string& folder, const std::string& boot) {
  ScratchHost host;
  host.tool("/etc/init.d/one");
  host.file(folder + "/pid", "999999\n");
  host.file(folder + "/bin/guard.sh", test_support::readFile(QX_GUARD));
  host.file(folder + "/stopped-services", boot + "one\n");
  return host;
}

TEST(Bootstrap, WhatADeadRunHadStoppedIsStartedFirst) {
  for (const char* folder : {"/var/qxagent.tmp", "/var/qxagent.tmp.left"}) {
    const ScratchHost host =
        hostWithLeft(folder, test_support::readFile("/proc/sys/kernel/random/boot_id"));
    host.run([&]() {
      EXPECT_THAT(bootstrap(makeBundle("")).output, HasSubstr("QX run\n"));
      EXPECT_THAT(host.calls(), testing::ElementsAre("/etc/init.d/one\tstart")) << folder;
      EXPECT_FALSE(std::filesystem::exists(folder));
    });
  }
}

TEST(Bootstrap, WhatWasStoppedBeforeARebootIsRemovedOnly) {
  const ScratchHost host = hostWithLeft("/var/qxagent.tmp", "an-earlier-boot\n");
  host.run([&]() {
    EXPECT_THAT(bootstrap(makeBundle("")).output, HasSubstr("QX run\n"));
    EXPECT_THAT(host.calls(), testing::IsEmpty());
    EXPECT_FALSE(left());
  });
}

TEST(Bootstrap, AGuardAtItsWorkIsWaitedFor) {
  ScratchHost host;
  host.dir("/var/qxagent.tmp.left");
  host.run([]() {
    const std::string digest = makeBundle("");
    const pid_t guard = fork();
    if (guard == 0) {
      execl("/bin/sh", "sh", "-c", "sleep 3; rm -rf $0; exit", "/var/qxagent.tmp.left",
            static_cast<char*>(nullptr));
      _exit(127);
    }
    std::ofstream("/var/qxagent.tmp.left/pid") << guard << "\n";
    EXPECT_THAT(bootstrap(digest).output, HasSubstr("QX run\n"));
    EXPECT_EQ(waitpid(guard, nullptr, WNOHANG), guard);
  });
}

TEST(Bootstrap, TheAgentsServicesGetTheFileModeOfABoot) {
  ScratchHost().run(
      []() { EXPECT_THAT(bootstrap(makeBundle("umask")).output, HasSubstr("\n0022\n")); });
}

TEST(Bootstrap, ADamagedBundleIsNotRun) {
  ScratchHost().run([]() {
    const std::string digest = makeBundle("");
    EXPECT_EQ(bootstrap(std::string(64, '0')).output, "QX send\nQX error digest\n");
    EXPECT_FALSE(left());
    // A bundle that ends early.
    EXPECT_THAT(bootstrap(digest, 100000000).output, HasSubstr("QX error digest\n"));
    EXPECT_FALSE(left());
  });
}

TEST(Bootstrap, WhatADeadRunLeftIsRemoved) {
  ScratchHost host;
  host.file("/var/qxagent.tmp/pid", "999999\n");
  host.file("/var/qxagent.tmp/junk/file", "x");
  host.run([]() {
    EXPECT_THAT(bootstrap(makeBundle("")).output, HasSubstr("QX run\n"));
    EXPECT_FALSE(left());
  });
}

TEST(Bootstrap, APidThatBelongsToAnotherProgramNowIsDead) {
  ScratchHost host;
  host.file("/var/qxagent.tmp/pid", "1\n");
  host.run([]() { EXPECT_THAT(bootstrap(makeBundle("")).output, HasSubstr("QX run\n")); });
}

TEST(Bootstrap, ALiveRunIsLeftAloneAndNamed) {
  ScratchHost host;
  host.dir("/var/qxagent.tmp");
  host.run([]() {
    const std::string digest = makeBundle("");
    const pid_t child = fork();
    if (child == 0) {
      execl("/bin/sleep", "/var/qxagent.tmp/bin/qxagent", "30", static_cast<char*>(nullptr));
      _exit(127);
    }
    std::ofstream("/var/qxagent.tmp/pid") << child << "\n";
    const BootstrapResult result = bootstrap(digest);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(result.output, "QX error live " + std::to_string(child) + "\n");
    EXPECT_TRUE(left());
  });
}

TEST(Bootstrap, MachinesThatWillNotDoAreNamed) {
  ScratchHost arm;
  arm.tool("/usr/bin/uname", {.script = "case $1 in -m) echo aarch64;; *) echo 6.1.0;; esac"});
  arm.run([]() { EXPECT_EQ(bootstrap(makeBundle("")).output, "QX error machine aarch64\n"); });
  for (const auto& [release, refused] :
       std::vector<std::pair<std::string, bool>>{{"2.6.32-754.el6", true},
                                                 {"3.1.9", true},
                                                 {"3.2.0-4-amd64", false},
                                                 {"3.10.0-1160", false},
                                                 {"4.4", false},
                                                 {"6.18.44-fc", false},
                                                 {"10.0.1", false}}) {
    ScratchHost host;
    host.tool("/usr/bin/uname",
              {.script = "case $1 in -m) echo x86_64;; *) echo " + release + ";; esac"});
    host.run([release = release, refused = refused]() {
      const std::string output = bootstrap(makeBundle("")).output;
      if (refused) {
        EXPECT_EQ(output, "QX error kernel " + release + "\n");
      } else {
        EXPECT_THAT(output, HasSubstr("QX run\n"));
      }
    });
  }
}

TEST(Bootstrap, NoRoomIsSeenBeforeAnythingIsSent) {
  ScratchHost host;
  host.tool("/usr/bin/df", {.out = "Filesystem 1024-blocks Used Available Capacity Mounted on\n"
                                   "/dev/sda1 1000000 999000 1000 99% /var\n"});
  host.run([]() {
    EXPECT_EQ(bootstrap(makeBundle("")).output, "QX error space 1000\n");
    EXPECT_FALSE(left());
  });
}

TEST(Bootstrap, AMissingToolIsNamed) {
  ScratchHost host;
  host.run([]() {
    const std::string digest = makeBundle("");
    std::filesystem::remove("/usr/bin/gzip");
    EXPECT_EQ(bootstrap(digest).output, "QX error tool gzip\n");
    EXPECT_FALSE(left());
  });
}

TEST(Bootstrap, WhatIsNoArchiveIsToldAndRemoved) {
  ScratchHost().run([]() {
    makeBundle("");
    EXPECT_EQ(system("echo nothing of the kind >/tmp/bundle; sha256sum </tmp/bundle | cut -c1-64 "
                     "| tr -d '\\n' >/tmp/digest"),
              0);
    EXPECT_THAT(bootstrap(test_support::readFile("/tmp/digest")).output,
                HasSubstr("QX error unpack "));
    EXPECT_FALSE(left());
  });
}

TEST(Bootstrap, TheCommandSurvivesEveryLoginShell) {
  for (const std::string& command :
       {agent::bootstrapCommand(12345, std::string(64, 'a')), agent::channelCommand("t")}) {
    EXPECT_EQ(command.find('\n'), std::string::npos);
    // Quoted from the outside only, so that csh and its kin pass it on, too.
    EXPECT_EQ(std::count(command.begin(), command.end(), '\''), 4);
    EXPECT_EQ(command.find('!'), std::string::npos);
  }
}

TEST(BootstrapLine, OnlyWhatTheProgramSaysIsMoreThanNoise) {
  using Kind = agent::BootstrapLine::Kind;
  EXPECT_EQ(agent::readBootstrapLine("QX send").kind, Kind::kSend);
  EXPECT_EQ(agent::readBootstrapLine("QX run").kind, Kind::kRun);
  for (const char* noise : {"", "Welcome", "QX", "QX sends", "QX  ", "QXrun", "x QX run"}) {
    EXPECT_EQ(agent::readBootstrapLine(noise).kind, Kind::kNoise) << noise;
  }
  const agent::BootstrapLine error = agent::readBootstrapLine("QX error directory  no such  one");
  EXPECT_EQ(error.kind, Kind::kError);
  EXPECT_EQ(error.word, "directory");
  EXPECT_EQ(error.detail, "no such  one");
}

// How a login ends whose server runs this program of the shell.
std::string loginInto(const std::string& program, std::chrono::seconds patience) {
  const test_support::TempTree tree({test_support::fileAt("bundle", "12345")});
  agent::Bundle bundle;
  bundle.path = tree.path("bundle");
  bundle.bytes = 5;
  agent::SshLogin login(patience);
  login.start({"/bin/sh", "-c", program});
  int told = 0;
  try {
    login.bringOver(
        bundle, "root@web", [&](const std::string&) { ++told; }, nullptr);
    return "runs";
  } catch (const std::runtime_error& problem) {
    EXPECT_LE(told, 1);
    return problem.what();
  }
}

TEST(SshLogin, NobodyMakesItSendTheAgentOrListenForEver) {
  const std::chrono::seconds minute(60);
  EXPECT_EQ(loginInto("echo hello; echo QX send; head -c 5; echo; echo QX run", minute), "runs");
  EXPECT_EQ(loginInto("while echo QX send; do :; done", minute),
            "root@web asks for the agent a second time");
  EXPECT_THAT(loginInto("while echo QX more; do :; done", minute),
              HasSubstr("cannot work on root@web"));
  EXPECT_EQ(loginInto("exec sleep 60", std::chrono::seconds(2)),
            "the agent does not run on root@web after 2 seconds");
  EXPECT_EQ(loginInto("while printf x; do :; done", std::chrono::seconds(2)),
            "the agent does not run on root@web after 2 seconds");
}

TEST(Bundle, IsFoundWithItsDigest) {
  const std::string digest(64, 'b');
  const test_support::TempTree tree({test_support::fileAt("bundle.tar.gz", "12345"),
                                     test_support::fileAt("bundle.sha256", digest + "\n")});
  setenv("QX_BUNDLE_DIR", tree.root().c_str(), 1);
  const agent::Bundle bundle = agent::findBundle();
  EXPECT_EQ(bundle.bytes, 5u);
  EXPECT_EQ(bundle.sha256, digest);
  std::ofstream(tree.path("bundle.sha256")) << "short";
  const auto problem = []() -> std::string {
    try {
      agent::findBundle();
      return "";
    } catch (const std::runtime_error& error) {
      return error.what();
    }
  };
  EXPECT_EQ(problem(), tree.path("bundle.sha256") + " holds no SHA-256 digest");
  setenv("QX_BUNDLE_DIR", "/no/such/dir", 1);
  EXPECT_EQ(problem(), "bundle.tar.gz, the agent for servers, is missing from /no/such/dir");
  unsetenv("QX_BUNDLE_DIR");
}

}  // namespace
