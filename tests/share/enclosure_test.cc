// What a stock rsync that a stranger has taken over could do on the node: a script in
// its place tries.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "share_tests/transfer.h"
#include "support/temp_tree.h"

using test_support::dirAt;
using test_support::fileAt;
using test_support::readFile;
using test_support::TempTree;

namespace {

namespace fs = std::filesystem;

// Each line of the table is tried, and told to have "held", or not, in a file of the
// destination; what follows "may" is what a receiver must be able to.
constexpr const char* kAttacker = R"(#!/usr/bin/python3
import ctypes, os, signal, socket, sys

to = sys.argv[-1]
outside, parent = open(to + "/targets").read().split()
libc = ctypes.CDLL(None, use_errno=True)

def call(number, *arguments):
    if libc.syscall(number, *arguments) < 0:
        raise OSError(ctypes.get_errno(), "")

def device(name, mode, number):
    os.mknod(to + "/" + name, mode, number)
    os.close(os.open(to + "/" + name, os.O_RDONLY))

def write(path):
    with open(path, "w") as file:
        file.write("x")

def climb():
    # The usual way out of a root: a directory held open, a second root, "..".
    held = os.open("/", os.O_RDONLY)
    os.mkdir(to + "/jail")
    os.chroot(to + "/jail")
    os.fchdir(held)
    for _ in range(64):
        os.chdir("..")
    os.chroot(".")
    open("/etc/shadow").read()

def others():
    if len([name for name in os.listdir("/proc") if name.isdigit()]) < 5:
        raise OSError
    return True

attempts = {
    "write beside the destination": lambda: write(outside + "/planted"),
    "write beside it by ..": lambda: write(to + "/../planted"),
    "write into /etc": lambda: write("/etc/planted"),
    "write into /usr": lambda: write("/usr/planted"),
    "write into the root": lambda: write("/planted"),
    "write into /proc/sys": lambda: write("/proc/sys/kernel/core_pattern"),
    "read /etc/shadow": lambda: open("/etc/shadow").read(),
    "read what root has": lambda: os.listdir("/root"),
    "read beside the destination": lambda: open(outside + "/secret").read(),
    "climb out": climb,
    "see other processes": others,
    "signal the program above": lambda: os.kill(int(parent), 0),
    "open the disk": lambda: device("disk", 0o060600, os.stat("/").st_dev),
    "open the kernel's memory": lambda: device("mem", 0o020600, os.makedev(1, 1)),
    "use the network": lambda: socket.socket(socket.AF_INET, socket.SOCK_STREAM),
    "speak to the kernel": lambda: socket.socket(socket.AF_NETLINK, socket.SOCK_RAW),
    "speak to the hypervisor": lambda: socket.socket(40, socket.SOCK_STREAM),
    "mount": lambda: call(165, b"none", to.encode(), b"tmpfs", 0, None),
    "make a namespace": lambda: call(272, 0x10000000),
    "load a program into the kernel": lambda: call(321, 0, None, 0),
    "trace": lambda: call(101, 16, int(parent), 0, 0),
    "open by handle": lambda: call(304, 3, None, 0),
    "freeze the file system": lambda: __import__("fcntl").ioctl(os.open(to, os.O_RDONLY), 0xC0045877, 0),
    "change another's clock": lambda: call(164, None, None),
}
needs = {
    "write a file": lambda: write(to + "/file"),
    "give it away": lambda: os.chown(to + "/file", 1234, 1234),
    "make it set-id": lambda: os.chmod(to + "/file", 0o6755),
    "write another's file": lambda: write(to + "/file"),
    "make a device": lambda: os.mknod(to + "/null", 0o020666, os.makedev(1, 3)),
    "start a program": lambda: os.system("true") and write("/fails"),
    "use /dev/null": lambda: write("/dev/null"),
}
with open(to + "/report", "w") as report:
    for name, attempt in attempts.items():
        try:
            attempt()
            print("GOT THROUGH:", name, file=report)
        except OSError:
            print("held:", name, file=report)
    for name, need in needs.items():
        try:
            need()
            print("may:", name, file=report)
        except OSError as error:
            print("MAY NOT:", name, error, file=report)
)";

// The client of our program with a stock rsync of the test's own, against a peer that
// agrees to everything.
int runWith(const std::string& program, const std::string& destination, std::string* said) {
  Channel channel = pipeChannel();
  const std::string words = "QXRSYNC 2 AX 0\n";
  EXPECT_EQ(::write(channel.server.out.get(), words.data(), words.size()),
            static_cast<ssize_t>(words.size()));
  const std::string in = std::to_string(channel.client.in.get());
  const std::string out = std::to_string(channel.client.out.get());
  ProgramRun run({program, "-a", "--fdin", in, "--fdout", out, "0.0.0.0:/", destination});
  run.inherit(channel.client.in.get());
  run.inherit(channel.client.out.get());
  run.start();
  const int status = run.exitStatus();
  *said = run.err();
  return status;
}

class Enclosure : public testing::Test {
 protected:
  std::string programWithStock(const std::string& script) {
    const std::string path = tree_.path("own/rsync");
    fs::copy_file(builtRsync(), path, fs::copy_options::overwrite_existing);
    tree_.add(fileAt("own/rsync.stock", script, 0755));
    return path;
  }

  TempTree tree_{dirAt("own"), dirAt("to"), fileAt("secret", "x")};
  const std::string to_ = tree_.path("to");
  std::string said_;
};

// Whoever is not root is not closed in, and this is root's business.
bool isRoot() { return ::geteuid() == 0; }

}  // namespace

// A process whose number is none within the enclosure.
class Bystander {
 public:
  Bystander() {
    constexpr pid_t kBeyond = 64;
    while (pid_ < kBeyond) {
      stop();
      pid_ = ::fork();
      if (pid_ == 0) {
        ::pause();
        ::_exit(0);
      }
    }
  }
  ~Bystander() { stop(); }
  Bystander(const Bystander&) = delete;
  Bystander& operator=(const Bystander&) = delete;
  pid_t pid() const { return pid_; }

 private:
  void stop() const {
    if (pid_ <= 0) return;
    signalOne(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  pid_t pid_ = -1;
};

TEST_F(Enclosure, HoldsWhoeverHasTakenOverRsync) {
  ASSERT_TRUE(isRoot());
  const Bystander bystander;
  tree_.add(fileAt("to/targets", tree_.path("") + " " + std::to_string(bystander.pid())));
  EXPECT_EQ(runWith(programWithStock(kAttacker), to_, &said_), 0) << said_;
  const std::string report = readFile(to_ + "/report");
  EXPECT_THAT(report, testing::Not(testing::HasSubstr("GOT THROUGH")));
  EXPECT_THAT(report, testing::Not(testing::HasSubstr("MAY NOT")));
  EXPECT_THAT(report, testing::HasSubstr("held: write beside the destination"));
  EXPECT_THAT(report, testing::HasSubstr("may: use /dev/null"));
  std::fputs(report.c_str(), stdout);
  EXPECT_FALSE(fs::exists(tree_.path("planted")));
}

TEST_F(Enclosure, HoldsTheEngineToo) {
  ASSERT_TRUE(isRoot());
  const NoProcessLeftBehind processes;
  Channel channel = pipeChannel();
  const std::string words = "QXRSYNC 2 AX 00\n";
  ASSERT_EQ(::write(channel.server.out.get(), words.data(), words.size()),
            static_cast<ssize_t>(words.size()));
  const std::string in = std::to_string(channel.client.in.get());
  const std::string out = std::to_string(channel.client.out.get());
  ::setenv("QX_RSYNC_ENGINE", "own", 1);
  ProgramRun run({builtRsync(), "-ESHa", "--numeric-ids", "--delete", "--fdin", in, "--fdout", out,
                  "0.0.0.0:/", to_});
  run.inherit(channel.client.in.get());
  run.inherit(channel.client.out.get());
  run.start();
  ::setenv("QX_RSYNC_ENGINE", "stock", 1);
  const std::string engine = "/proc/" + std::to_string(awaitChild(run.pid(), "rsync"));
  // The filter is the last wall that it builds around itself.
  for (int i = 0;
       i < 1000 && readFile(engine + "/status").find("\nSeccomp:\t2") == std::string::npos; ++i)
    ::usleep(10000);
  const std::string status = readFile(engine + "/status");
  EXPECT_THAT(status, testing::HasSubstr("\nSeccomp:\t2"));
  EXPECT_THAT(status, testing::HasSubstr("\nNoNewPrivs:\t1"));
  EXPECT_THAT(status, testing::ContainsRegex("\nNSpid:\t[0-9\t]*\t1\n"));
  EXPECT_FALSE(fs::exists(engine + "/root/etc/passwd"));
  EXPECT_TRUE(fs::is_directory(engine + "/root" + to_));
  channel = {};
  EXPECT_EQ(run.exitStatus(), 12) << run.err();
}

TEST_F(Enclosure, DestinationThatCannotBeMadeIsNamed) {
  EXPECT_EQ(runWith(builtRsync(), tree_.path("no/such/place"), &said_), 3);
  EXPECT_EQ(said_, "rsync: cannot create the directory '" + tree_.path("no/such/place") +
                       "': No such file or directory\n");
}

TEST_F(Enclosure, TheReserveOfTheDiskStopsTheCopy) {
  const std::string program = programWithStock("#!/bin/sh\nsleep 100 & wait $!\n");
  // No disk has all of its blocks free.
  ::setenv("QX_RSYNC_RESERVE", "100", 1);
  ::setenv("QX_RSYNC_RESERVE_OF", to_.c_str(), 1);
  const int status = runWith(program, to_, &said_);
  ::unsetenv("QX_RSYNC_RESERVE");
  ::unsetenv("QX_RSYNC_RESERVE_OF");
  EXPECT_EQ(status, 11);
  EXPECT_THAT(said_,
              testing::MatchesRegex(
                  "rsync: the copy was stopped before the disk was full: only [0-9]+ MiB are "
                  "free at '" +
                  to_ + "', and [0-9]+ MiB .100 %. must stay free\n"));
}

TEST_F(Enclosure, AReserveThatIsNoneIsNamed) {
  ::setenv("QX_RSYNC_RESERVE", "lots", 1);
  EXPECT_EQ(runWith(builtRsync(), to_, &said_), 1);
  ::unsetenv("QX_RSYNC_RESERVE");
  EXPECT_EQ(said_, "rsync: 'lots' in QX_RSYNC_RESERVE is not a percentage from 0 to 100\n");
}
