// Processes that hold a known number of pages change the figures by just that much.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>

#include "quiet_host.h"

namespace {

constexpr std::size_t PAGE = 4096;

// A place that no mapping lies next to.
void* const APART = reinterpret_cast<void*>(0x200000000000);

void mapPages(std::size_t pages, int protection, int flags, int fd = -1) {
  void* at = mmap(APART, pages * PAGE, protection, flags | MAP_FIXED_NOREPLACE, fd, 0);
  if (at != APART) _exit(2);
}

}  // namespace

TEST(MemoryTruth, LockedPages) {
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

TEST(MemoryTruth, PrivatePages) {
  onQuietHost([] {
    const Holder holder(
        [] { mapPages(1000, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS); });
    const auto before = measured();
    holder.act();
    EXPECT_EQ(measured().privvmpages, before.privvmpages + 1000);
  });
}

TEST(MemoryTruth, PrivatePagesOfTwoProcessesAtOneAddressCountTwice) {
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

TEST(MemoryTruth, PrivatePagesInheritedByForkCountHalfASecondTime) {
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

TEST(MemoryTruth, SharedPagesCountOnceHoweverManyProcessesHaveThem) {
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

TEST(MemoryTruth, ReadOnlyPagesOfAFileCountOnce) {
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
