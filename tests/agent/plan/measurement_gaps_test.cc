// What a measurement has not seen, and a server of files that is gone.
#include "agent/plan/measurement_gaps.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <thread>

#include "support/scratch_host.h"

namespace {

using test_support::ScratchHost;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(MeasurementGaps, OpenFilesThatWereNotCountedAreToldOf) {
  const agent::Counted counted{1000, 9};
  EXPECT_THAT(agent::measurementGaps(counted, 2000), IsEmpty());
  const auto gaps = agent::measurementGaps(counted, 150000);
  ASSERT_EQ(gaps.size(), 1U);
  EXPECT_EQ(gaps[0],
            "The server has 150,000 open files, and the usual way of counting saw 1,000 of them: "
            "NUMFILE is too small. Give it in --config.");
}

TEST(MeasurementGaps, RulesAndRoutesThatWereNotCountedAreToldOf) {
  const auto gaps = agent::measurementGaps({}, 0);
  ASSERT_EQ(gaps.size(), 1U);
  EXPECT_THAT(gaps[0], HasSubstr("firewall rules and routes could not be counted"));
}

TEST(MeasurementGaps, OpenFilesAreCountedByProcess) {
  const long long before = agent::countOpenFiles();
  std::vector<int> files;
  for (int i = 0; i < 500; ++i) files.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  EXPECT_GE(agent::countOpenFiles(), before + 400);
  for (const int file : files) close(file);
  EXPECT_EQ(agent::countOpenFiles("/no/such/place"), 0);
}

TEST(MeasurementGaps, AServerOfFilesThatIsGoneIsFoundAndHidden) {
  // Whoever asks this file system waits for an answer of ours, which never comes.
  const int server = open("/dev/fuse", O_RDWR | O_CLOEXEC);
  ASSERT_GE(server, 0);
  ScratchHost host;
  host.dir("/mnt/dead").dir("/mnt/well");
  host.run([server] {
    const std::string options =
        "fd=" + std::to_string(server) + ",rootmode=40000,user_id=0,group_id=0";
    ASSERT_EQ(mount("files:/", "/mnt/dead", "fuse.sshfs", 0, options.c_str()), 0);
    EXPECT_THAT(agent::deadMounts(std::chrono::milliseconds(300)), ElementsAre("/mnt/dead"));
    std::thread([] {
      agent::hideMounts({"/mnt/dead"});
      struct statvfs figures;
      EXPECT_EQ(statvfs("/mnt/dead", &figures), 0);
    }).join();
    // Everybody else has it still.
    EXPECT_THAT(agent::deadMounts(std::chrono::milliseconds(300)), ElementsAre("/mnt/dead"));
    // Who waits is let go: nothing else ends a thread in there, not even the look for leaks.
    EXPECT_EQ(umount2("/mnt/dead", MNT_FORCE | MNT_DETACH), 0) << strerror(errno);
  });
  close(server);
}

}  // namespace
