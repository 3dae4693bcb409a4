// Processes that hold a known number of sockets, files and locks change the figures by
// just that much.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/file.h>
#include <sys/shm.h>
#include <sys/socket.h>

#include <algorithm>

#include "quiet_host.h"

namespace {

bool byProcesses(const QXHWCalc::PhysParams& a, const QXHWCalc::PhysParams& b) {
  return a.numproc < b.numproc;
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

TEST(Truth, PagesOfSystemVSharedMemory) {
  onQuietHost([] {
    const auto before = measured();
    const int id = shmget(IPC_PRIVATE, 19 * 4096, IPC_CREAT | 0600);
    ASSERT_NE(id, -1);
    EXPECT_EQ(measured().shmpages, before.shmpages + 19);
    shmctl(id, IPC_RMID, nullptr);
  });
}
