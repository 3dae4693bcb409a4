// What the guard of a server does when those who should clean up are gone, and how it starts
// services again.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "support/scratch_host.h"
#include "support/temp_tree.h"

namespace {

using test_support::ScratchHost;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kFolder[] = "/var/qxagent.tmp";

// With its newline, as a list of stopped services begins.
std::string bootId() { return test_support::readFile("/proc/sys/kernel/random/boot_id"); }

// A process of the test's own that ends when it is told to, or with this object.
class Process {
 public:
  explicit Process(const std::string& command) : pid_(fork()) {
    if (pid_ == 0) {
      execl("/bin/bash", "bash", "-c", command.c_str(), static_cast<char*>(nullptr));
      _exit(127);
    }
  }
  ~Process() { stop(); }
  void stop() {
    if (pid_ < 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }
  // Whether it has ended by itself in so many seconds; 0: by now.
  bool ends(int seconds) {
    for (int i = 0; i <= seconds * 20; ++i) {
      if (waitpid(pid_, nullptr, WNOHANG) == pid_) {
        pid_ = -1;
        return true;
      }
      usleep(50000);
    }
    return false;
  }
  std::string pid() const { return std::to_string(pid_); }

 private:
  pid_t pid_;
};

ScratchHost server() {
  ScratchHost host;
  host.tool("/etc/init.d/one").tool("/etc/init.d/two", {.status = 1});
  host.file(std::string(kFolder) + "/stopped-services", bootId() + "two\none\n");
  host.file("/proc/uptime", "1000.25 1900.00\n");
  return host;
}

void writeFile(const char* name, const std::string& text) {
  std::ofstream(std::string(kFolder) + "/" + name) << text;
}

std::string guardOf(const Process& starter) {
  return std::string("exec /bin/sh ") + QX_GUARD + " " + kFolder + " " + starter.pid();
}

// The guard without a starter, at once.
void startServices() {
  EXPECT_EQ(system((std::string("/bin/sh ") + QX_GUARD + " " + kFolder).c_str()), 0);
}

// With one service, which runs as long as /run/slow is there.
ScratchHost slowServer(std::string script) {
  ScratchHost host;
  host.tool("/etc/init.d/slow", {.script = std::move(script)});
  host.file(std::string(kFolder) + "/stopped-services", bootId() + "slow\n");
  host.file("/run/slow", "");
  return host;
}

// With the command line of an agent; the program is this copy of a shell.
std::string agentCommand(const std::string& program = "/var/qxagent.tmp/lib/ld.so") {
  return "mkdir -p \"$(dirname '" + program + "')\"; cp /bin/bash '" + program +
         "'; exec -a /var/qxagent.tmp/lib/ld.so '" + program +
         "' -c 'while :; do sleep 1; done' qxagent serve --stdio";
}

TEST(Guard, StartsWhatWasStoppedAndRemovesTheFolderWhenNobodyIsLeft) {
  const ScratchHost host = server();
  host.run([&] {
    Process starter("sleep 1000");
    writeFile("pid", starter.pid() + "\n");
    Process guard(guardOf(starter));
    EXPECT_FALSE(guard.ends(5));
    EXPECT_THAT(host.calls(), IsEmpty());
    starter.stop();
    EXPECT_TRUE(guard.ends(60));
    EXPECT_THAT(host.calls(), ElementsAre("/etc/init.d/two\tstart", "/etc/init.d/one\tstart"));
    EXPECT_FALSE(std::filesystem::exists(kFolder));
    EXPECT_FALSE(std::filesystem::exists(std::string(kFolder) + ".left"));
  });
}

TEST(Guard, WaitsForAnAgentThatHearsOfItsHost) {
  const ScratchHost host = server();
  host.run([&] {
    Process starter("sleep 1000");
    writeFile("pid", starter.pid() + "\n");
    writeFile("heard", "881\n");
    Process agent(agentCommand());
    Process guard(guardOf(starter));
    starter.stop();
    EXPECT_FALSE(guard.ends(5));
    EXPECT_THAT(host.calls(), IsEmpty());
    EXPECT_FALSE(agent.ends(0));
    agent.stop();
    EXPECT_TRUE(guard.ends(60));
    EXPECT_EQ(host.calls().size(), 2u);
  });
}

// Any account can run a program under that name, and must not keep services stopped.
TEST(Guard, DoesNotWaitForAnImitation) {
  for (const char* program : {"/tmp/shell", "/tmp/x -> /var/qxagent.tmp/shell"}) {
    const ScratchHost host = server();
    host.run([&] {
      Process starter("sleep 1000");
      writeFile("pid", starter.pid() + "\n");
      Process imitation(agentCommand(program));
      usleep(500000);
      Process guard(guardOf(starter));
      starter.stop();
      EXPECT_TRUE(guard.ends(60)) << program;
      EXPECT_EQ(host.calls().size(), 2u);
      EXPECT_FALSE(imitation.ends(0));
    });
  }
}

TEST(Guard, EndsAnAgentThatHasNotHeardOfItsHostForMinutes) {
  const ScratchHost host = server();
  host.run([&] {
    Process starter("sleep 1000");
    writeFile("pid", starter.pid() + "\n");
    writeFile("heard", "879\n");
    Process agent(agentCommand());
    usleep(500000);
    Process guard(guardOf(starter));
    EXPECT_TRUE(agent.ends(60));
    // Whoever started it lives and cleans up.
    EXPECT_FALSE(guard.ends(3));
    EXPECT_THAT(host.calls(), IsEmpty());
    EXPECT_TRUE(std::filesystem::exists(kFolder));
  });
}

TEST(Guard, DoesNotWaitForAStarterThatIsStopped) {
  const ScratchHost host = server();
  host.run([&] {
    Process starter("kill -STOP $$; sleep 1000");
    writeFile("pid", starter.pid() + "\n");
    writeFile("heard", "879\n");
    Process guard(guardOf(starter));
    // The test is its parent.
    EXPECT_TRUE(starter.ends(60));
    EXPECT_TRUE(guard.ends(60));
    EXPECT_EQ(host.calls().size(), 2u);
  });
}

TEST(Guard, LeavesWhenTheFolderIsGoneOrAnothers) {
  const ScratchHost host = server();
  host.run([&] {
    Process starter("sleep 1000");
    writeFile("pid", "1\n");
    Process guard(guardOf(starter));
    starter.stop();
    EXPECT_TRUE(guard.ends(60));
    EXPECT_THAT(host.calls(), IsEmpty());
    EXPECT_TRUE(std::filesystem::exists(std::string(kFolder) + "/stopped-services"));
    std::filesystem::remove_all(kFolder);
    Process another(guardOf(starter));
    EXPECT_TRUE(another.ends(60));
  });
}

// The next connection may be starting services from the list of a guard that was killed.
TEST(Guard, LeavesAnothersListAloneWhenTheStarterHasCleanedUp) {
  ScratchHost host = server();
  host.file(std::string(kFolder) + ".left/stopped-services", "");
  host.run([&] {
    Process starter("sleep 1000");
    writeFile("pid", starter.pid() + "\n");
    Process guard(guardOf(starter));
    sleep(1);
    std::filesystem::remove_all(kFolder);
    starter.stop();
    EXPECT_TRUE(guard.ends(60));
    EXPECT_TRUE(std::filesystem::exists(std::string(kFolder) + ".left/stopped-services"));
  });
}

// Started while it is stopping, it would be down in the end.
TEST(Guard, StartsAServiceWhenTheScriptThatStopsItHasEnded) {
  const ScratchHost host = slowServer(
      "case $1 in start) [ -e /run/stopping ] || touch /run/slow;;\n"
      "stop) touch /run/stopping; sleep 5; rm /run/slow /run/stopping;; esac");
  host.run([&] {
    Process stop("exec /etc/init.d/slow stop");
    while (!std::filesystem::exists("/run/stopping")) usleep(10000);
    startServices();
    EXPECT_TRUE(stop.ends(0));
    EXPECT_TRUE(std::filesystem::exists("/run/slow"));
    EXPECT_THAT(host.calls(), ElementsAre("/etc/init.d/slow\tstop", "/etc/init.d/slow\tstart"));
  });
}

TEST(Guard, DoesNotWaitForAnothersProcessThatLooksLikeSuchAScript) {
  const ScratchHost host = slowServer("");
  host.run([&] {
    Process imitation(
        "exec setpriv --reuid 1000 /bin/sh -c 'sleep 1000; exit' /etc/init.d/slow stop");
    usleep(500000);
    startServices();
    EXPECT_FALSE(imitation.ends(0));
    EXPECT_THAT(host.calls(), ElementsAre("/etc/init.d/slow\tstart"));
  });
}

// Its script has ended, and the service was only told to.
TEST(Guard, LooksAgainAndStartsWhatIsDownThen) {
  const ScratchHost host = slowServer(
      "case $1 in start) [ -e /run/stopping ] || touch /run/slow;;\n"
      "status) [ -e /run/slow ] || exit 3;; esac; exit 0");
  host.run([&] {
    std::ofstream("/run/stopping") << "";
    Process daemon("sleep 2; rm /run/slow /run/stopping");
    startServices();
    EXPECT_TRUE(std::filesystem::exists("/run/slow"));
    EXPECT_THAT(host.calls(), ElementsAre("/etc/init.d/slow\tstart", "/etc/init.d/slow\tstatus",
                                          "/etc/init.d/slow\tstart"));
  });
}

TEST(Guard, DoesNotStartTwiceWhatRunsOrCannotTell) {
  for (const char* script : {"case $1 in status) exit 0;; esac", "[ $1 = start ] || exit 3"}) {
    const ScratchHost host = slowServer(script);
    host.run([&] {
      startServices();
      EXPECT_EQ(std::ranges::count(host.calls(), "/etc/init.d/slow\tstart"), 1) << script;
    });
  }
}

// The boot has started what is to run, and what does not was stopped on purpose.
TEST(Guard, StartsNothingThatWasStoppedBeforeAReboot) {
  for (const std::string boot : {"8b1e4d0e-2f2a-4f0b-9a3c-0d5c6e7f8a9b\n", "\n", ""}) {
    ScratchHost host;
    host.tool("/etc/init.d/one");
    host.file(std::string(kFolder) + "/stopped-services", boot + "one\n");
    host.run([&] {
      startServices();
      EXPECT_THAT(host.calls(), IsEmpty());
    });
  }
}

// Some daemons never change that: nothing could end them, and their files were root's alone.
TEST(Guard, GivesServicesTheSignalsAndFilesOfABoot) {
  ScratchHost host;
  host.tool("/etc/init.d/one",
            {.script = "umask >/run/found; sed -n 's/^SigIgn:[[:space:]]*//p' /proc/$$/status "
                       ">>/run/found"});
  host.file(std::string(kFolder) + "/stopped-services", bootId() + "one\n");
  host.run([&] {
    umask(077);
    startServices();
    std::ifstream found("/run/found");
    std::string mode, ignored;
    found >> mode >> ignored;
    EXPECT_EQ(mode, "0022");
    EXPECT_EQ(std::stoull(ignored, nullptr, 16) & 0x5001U, 0U) << ignored;  // HUP, PIPE, TERM
  });
}

// Whoever comes next must see that somebody is at work.
TEST(Guard, ItsPidStandsInTheFolderWhileItStartsServices) {
  ScratchHost host;
  host.tool("/etc/init.d/one", {.script = "cat /var/qxagent.tmp.left/pid >/run/found"});
  host.file(std::string(kFolder) + "/stopped-services", bootId() + "one\n");
  host.run([&] {
    Process starter("sleep 1000");
    writeFile("pid", starter.pid() + "\n");
    Process guard(guardOf(starter));
    const std::string pid = guard.pid();
    starter.stop();
    EXPECT_TRUE(guard.ends(60));
    std::string found;
    std::ifstream("/run/found") >> found;
    EXPECT_EQ(found, pid);
  });
}

}  // namespace
