// What the guard of a server does when those who should clean up are gone.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "support/scratch_host.h"

namespace {

using test_support::ScratchHost;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kFolder[] = "/var/qxagent.tmp";

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
  // Whether it has ended by itself in so many seconds.
  bool ends(int seconds) {
    for (int i = 0; i < seconds * 20; ++i) {
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
  host.file(std::string(kFolder) + "/stopped-services", "two\none\n");
  host.file("/proc/uptime", "1000.25 1900.00\n");
  return host;
}

void writeFile(const char* name, const std::string& text) {
  std::ofstream(std::string(kFolder) + "/" + name) << text;
}

std::string guardOf(const Process& starter) {
  return std::string("exec /bin/sh ") + QX_GUARD + " " + kFolder + " " + starter.pid();
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

}  // namespace
