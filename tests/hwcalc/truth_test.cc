// Measured against the truth: processes that hold known amounts change the figures
// by just that much. All on a scratch host with a network of its own, so that
// nothing else moves.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <netinet/in.h>
#include <sched.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <string>

#include "hwcalc/hw_calc.h"
#include "support/scratch_host.h"

namespace {

QXHWCalc::PhysParams measured() {
  QXHWCalc calculator;
  calculator.measureTime = 0;
  QXHWCalc::PhysParams params;
  EXPECT_EQ(calculator.calcProcParams(&params), QXHWCalc::EC_OK) << calculator.errorText;
  return params;
}

bool byProcesses(const QXHWCalc::PhysParams& a, const QXHWCalc::PhysParams& b) {
  return a.numproc < b.numproc;
}

// Runs the body where only it changes anything; the file systems are not measured.
void onQuietHost(const std::function<void()>& body) {
  test_support::ScratchHost host;
  host.tool("/usr/bin/df");
  host.tool("/usr/sbin/iptables");
  host.tool("/usr/sbin/ip");
  host.run([&] {
    if (unshare(CLONE_NEWNET) != 0) GTEST_SKIP() << "no network namespaces here";
    // The measuring process's own heap must not grow between two samples.
    mallopt(M_TRIM_THRESHOLD, 512 << 20);
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    const void* volatile room = malloc(16 << 20);
    free(const_cast<void*>(room));
    measured();
    body();
  });
}

// A process that does what it is told and then waits.
class Holder {
 public:
  // Starts the process; it runs `body` when told to.
  explicit Holder(const std::function<void()>& body) {
    EXPECT_EQ(pipe2(toHolder_, O_CLOEXEC), 0);
    EXPECT_EQ(pipe2(fromHolder_, O_CLOEXEC), 0);
    pid_ = fork();
    if (pid_ != 0) return;
    char byte = 0;
    // Ends when the test does.
    while (read(toHolder_[0], &byte, 1) == 1) {
      if (byte == 'q') _exit(0);
      body();
      if (write(fromHolder_[1], "k", 1) != 1) _exit(1);
    }
    _exit(1);
  }
  ~Holder() {
    EXPECT_EQ(write(toHolder_[1], "q", 1), 1);
    waitpid(pid_, nullptr, 0);
    for (const int fd : {toHolder_[0], toHolder_[1], fromHolder_[0], fromHolder_[1]}) close(fd);
  }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;

  void act() const {
    char byte = 0;
    ASSERT_EQ(write(toHolder_[1], "a", 1), 1);
    ASSERT_EQ(read(fromHolder_[0], &byte, 1), 1);
  }

 private:
  int toHolder_[2];
  int fromHolder_[2];
  pid_t pid_;
};

constexpr std::size_t PAGE = 4096;

// A place that no mapping lies next to.
void* const APART = reinterpret_cast<void*>(0x200000000000);

void mapPages(std::size_t pages, int protection, int flags, int fd = -1) {
  void* at = mmap(APART, pages * PAGE, protection, flags | MAP_FIXED_NOREPLACE, fd, 0);
  if (at != APART) _exit(2);
}

int socketOf(int family, int type, int protocol = 0) {
  const int fd = socket(family, type | SOCK_CLOEXEC, protocol);
  if (fd == -1) _exit(3);
  return fd;
}

}  // namespace

TEST(Truth, TcpSockets) {
  onQuietHost([] {
    const Holder holder([] {
      for (int i = 0; i < 7; ++i) listen(socketOf(AF_INET, SOCK_STREAM), 1);
    });
    const auto before = measured();
    holder.act();
    EXPECT_EQ(measured().numtcpsock, before.numtcpsock + 7);
  });
}

TEST(Truth, OtherSockets) {
  onQuietHost([] {
    const Holder holder([] {
      for (int i = 0; i < 3; ++i) socketOf(AF_UNIX, SOCK_STREAM);
      for (int i = 0; i < 5; ++i) {
        sockaddr_in any{};
        any.sin_family = AF_INET;
        if (bind(socketOf(AF_INET, SOCK_DGRAM), reinterpret_cast<sockaddr*>(&any), sizeof(any))) {
          _exit(4);
        }
      }
      for (int i = 0; i < 2; ++i) socketOf(AF_INET, SOCK_RAW, IPPROTO_ICMP);
    });
    const auto before = measured();
    holder.act();
    EXPECT_EQ(measured().numothersock, before.numothersock + 10);
  });
}

// The counting command sees its own processes' descriptors too, and more or fewer of
// them as these come and go: that is the difference allowed here.
TEST(Truth, OpenFiles) {
  onQuietHost([] {
    const Holder holder([] {
      for (int i = 0; i < 800; ++i) {
        if (open("/dev/null", O_RDONLY | O_CLOEXEC) == -1) _exit(5);
      }
    });
    const auto before = measured();
    holder.act();
    EXPECT_NEAR(measured().numfile, before.numfile + 800.0, 10.0);
  });
}

TEST(Truth, Processes) {
  onQuietHost([] {
    // The counting command's own processes have not all started in every sample.
    const auto largest = [] { return std::max({measured(), measured(), measured()}, byProcesses); };
    const auto before = largest();
    const Holder first([] {});
    const Holder second([] {});
    const Holder third([] {});
    EXPECT_EQ(largest().numproc, before.numproc + 3);
  });
}

TEST(Truth, FileLocks) {
  onQuietHost([] {
    const Holder holder([] {
      const int ranges = open("/tmp/ranges", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
      for (int i = 0; i < 11; ++i) {
        struct flock lock {};
        lock.l_type = F_WRLCK;
        lock.l_start = 10 * i;
        lock.l_len = 1;
        if (fcntl(ranges, F_SETLK, &lock) != 0) _exit(6);
      }
      if (flock(open("/tmp/whole", O_RDWR | O_CREAT | O_CLOEXEC, 0600), LOCK_EX) != 0) _exit(7);
    });
    const auto before = measured();
    holder.act();
    EXPECT_EQ(measured().numflock, before.numflock + 12);
  });
}

TEST(Truth, LockedPages) {
  onQuietHost([] {
    const Holder holder([] {
      mapPages(20, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS);
      if (mlock(APART, 13 * PAGE) != 0) _exit(8);
    });
    const auto before = measured();
    holder.act();
    EXPECT_EQ(measured().lockedpages, before.lockedpages + 13);
  });
}

TEST(Truth, PagesOfSystemVSharedMemory) {
  onQuietHost([] {
    const auto before = measured();
    const int id = shmget(IPC_PRIVATE, 19 * PAGE, IPC_CREAT | 0600);
    ASSERT_NE(id, -1);
    EXPECT_EQ(measured().shmpages, before.shmpages + 19);
    shmctl(id, IPC_RMID, nullptr);
  });
}

TEST(Truth, PrivatePages) {
  onQuietHost([] {
    const Holder holder(
        [] { mapPages(1000, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS); });
    const auto before = measured();
    holder.act();
    EXPECT_EQ(measured().privvmpages, before.privvmpages + 1000);
  });
}

TEST(Truth, PrivatePagesOfTwoProcessesAtOneAddressCountTwice) {
  onQuietHost([] {
    const auto map = [] { mapPages(1000, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS); };
    const Holder first(map);
    const Holder second(map);
    const auto before = measured();
    first.act();
    second.act();
    EXPECT_EQ(measured().privvmpages, before.privvmpages + 2000);
  });
}

TEST(Truth, PrivatePagesInheritedByForkCountHalfASecondTime) {
  onQuietHost([] {
    // Twice the same, but for the pages that the parent has when it forks.
    const auto pagesWithFork = [](std::size_t pages) {
      const Holder holder([pages] {
        if (pages != 0) mapPages(pages, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS);
        if (fork() == 0) {
          // Ends with its parent, whose end of the pipe it must not hold open.
          prctl(PR_SET_PDEATHSIG, SIGKILL);
          for (;;) pause();
        }
      });
      holder.act();
      return measured().privvmpages;
    };
    const std::uint32_t without = pagesWithFork(0);
    EXPECT_EQ(pagesWithFork(1000), without + 1500);
  });
}

TEST(Truth, SharedPagesCountOnceHoweverManyProcessesHaveThem) {
  onQuietHost([] {
    const int fd = memfd_create("shared", MFD_CLOEXEC);
    ASSERT_EQ(ftruncate(fd, 500 * PAGE), 0);
    const auto map = [fd] { mapPages(500, PROT_READ | PROT_WRITE, MAP_SHARED, fd); };
    const Holder first(map);
    const Holder second(map);
    const auto before = measured();
    first.act();
    EXPECT_EQ(measured().privvmpages, before.privvmpages + 500);
    second.act();
    EXPECT_EQ(measured().privvmpages, before.privvmpages + 500);
  });
}

TEST(Truth, ReadOnlyPagesOfAFileCountOnce) {
  onQuietHost([] {
    const int fd = memfd_create("file", MFD_CLOEXEC);
    ASSERT_EQ(ftruncate(fd, 300 * PAGE), 0);
    const auto map = [fd] { mapPages(300, PROT_READ, MAP_PRIVATE, fd); };
    const Holder first(map);
    const Holder second(map);
    const auto before = measured();
    first.act();
    second.act();
    EXPECT_EQ(measured().privvmpages, before.privvmpages + 300);
  });
}
