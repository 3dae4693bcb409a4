// Looking at a machine: files, mounts, and the operator that is asked to.

#include "agent/plan/survey.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

#include "agent/framework/access.h"
#include "agent/plan/survey_files.h"
#include "agent/plan/survey_mounts.h"
#include "agent/plan/survey_operator.h"
#include "agent/transport/connect.h"
#include "agent/transport/local_transport.h"
#include "agent/wire/message.h"
#include "agent/wire/operator_registry.h"
#include "framework/errors.h"
#include "host/fd.h"
#include "support/scratch_host.h"
#include "support/temp_tree.h"

namespace {

using namespace std::chrono_literals;
using test_support::ScratchHost;
using testing::ElementsAre;
using testing::IsEmpty;

class FilesTest : public testing::Test {
 protected:
  void write(const std::string& name, size_t bytes) {
    std::filesystem::create_directories(std::filesystem::path(tree_.path(name)).parent_path());
    std::ofstream(tree_.path(name)) << std::string(bytes, 'x');
  }
  agent::FileFindings look(const std::map<std::string, bool>& mounts,
                           const std::vector<std::string>& excludes = {}) {
    return agent::lookAtFiles(root_, mounts, excludes, 20s, nullptr);
  }

  test_support::TempTree tree_;
  std::string root_ = std::filesystem::path(tree_.path("x")).parent_path();
};

TEST_F(FilesTest, InodesCountOnceEach) {
  write("etc/a", 10000);
  write("srv/b", 10000);
  std::filesystem::create_hard_link(tree_.path("srv/b"), tree_.path("srv/c"));
  const auto found = look({{root_, true}});
  EXPECT_TRUE(found.complete);
  // The root, two directories, two files.
  EXPECT_EQ(found.perMount.at(root_).files, 5);
  EXPECT_GE(found.perMount.at(root_).bytes, 20000);
  EXPECT_LT(found.perMount.at(root_).bytes, 100000);
}

TEST_F(FilesTest, ExclusionsAndOtherMountsAreNotEntered) {
  write("srv/cache/a", 1);
  write("srv/b", 1);
  write("mnt/nas/c", 1);
  write("mnt/disk/d", 1);
  const auto found =
      look({{root_, true}, {tree_.path("mnt/nas"), false}, {tree_.path("mnt/disk"), true}},
           {tree_.path("srv/cache") + "/*"});
  EXPECT_EQ(found.perMount.at(root_).files, 5);  // root, srv, cache, b, mnt
  EXPECT_EQ(found.perMount.at(tree_.path("mnt/disk")).files, 2);
  EXPECT_EQ(found.perMount.count(tree_.path("mnt/nas")), 0U);
}

TEST_F(FilesTest, TheLargestOwnerIsFound) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to give files away";
  write("home/far", 1);
  ASSERT_EQ(chown(tree_.path("home/far").c_str(), 70000, 80000), 0);
  const auto found = look({{root_, true}});
  EXPECT_EQ(found.largestUid, 70000U);
  EXPECT_EQ(found.largestUidPath, tree_.path("home/far"));
  EXPECT_EQ(found.largestGid, 80000U);
}

// Sets a file's attribute while it lives; false where the file system has none.
class Attribute {
 public:
  Attribute(const std::string& path, int flag)
      : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC)), set_(put(flag)) {}
  ~Attribute() {
    put(0);
    close(fd_);
  }
  Attribute(const Attribute&) = delete;
  Attribute& operator=(const Attribute&) = delete;
  bool isSet() const { return set_; }

 private:
  bool put(int flag) const {
    int flags = 0;
    if (ioctl(fd_, FS_IOC_GETFLAGS, &flags) != 0) return false;
    flags = (flags & ~(FS_IMMUTABLE_FL | FS_APPEND_FL)) | flag;
    return ioctl(fd_, FS_IOC_SETFLAGS, &flags) == 0;
  }

  int fd_;
  bool set_;
};

TEST_F(FilesTest, ImmutableAndAppendOnlyFilesAreFound) {
  for (const char* name : {"etc/resolv.conf", "srv/log", "srv/plain"}) write(name, 1);
  const Attribute immutable(tree_.path("etc/resolv.conf"), FS_IMMUTABLE_FL);
  const Attribute append(tree_.path("srv/log"), FS_APPEND_FL);
  if (!immutable.isSet() || !append.isSet()) {
    GTEST_SKIP() << "needs root and a file system with attributes";
  }
  const auto found = look({{root_, true}});
  EXPECT_EQ(found.immutableCount, 2);
  EXPECT_THAT(found.immutableFiles,
              ElementsAre(tree_.path("etc/resolv.conf"), tree_.path("srv/log")));
  EXPECT_EQ(look({{root_, true}}, {tree_.path("srv")}).immutableCount, 1);
}

TEST_F(FilesTest, TimeThatRunsOutIsTold) {
  for (int i = 0; i < 200; ++i) write("srv/" + std::to_string(i), 0);
  EXPECT_FALSE(agent::lookAtFiles(root_, {{root_, true}}, {}, 0s, nullptr).complete);
}

TEST_F(FilesTest, AFifoIsNotWaitedFor) {
  ASSERT_EQ(mkfifo(tree_.path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(look({{root_, true}}).perMount.at(root_).files, 2);
}

// The owner of a folder swaps it for a link while the files in it are looked at.
TEST_F(FilesTest, NothingButFilesIsOpenedWhoeverSwapsTheirFolder) {
  constexpr int kFiles = 200;
  test_support::TempTree elsewhere;
  for (int i = 0; i < kFiles; ++i) {
    const std::string name = std::to_string(i);
    write("home/own/" + name, 1);
    ASSERT_EQ(mkfifo(elsewhere.path(name).c_str(), 0600), 0);
  }
  const std::string own = tree_.path("home/own"), link = tree_.path("link");
  ASSERT_EQ(symlink(elsewhere.root().c_str(), link.c_str()), 0);
  const host::Fd watch(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  ASSERT_GE(inotify_add_watch(watch.get(), elsewhere.root().c_str(), IN_OPEN), 0);
  std::atomic<bool> over{false};
  std::thread owner([&] {
    while (!over) renameat2(AT_FDCWD, own.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE);
  });
  for (int i = 0; i < 50; ++i) look({{root_, true}});
  over = true;
  owner.join();
  alignas(inotify_event) char events[65536];
  const ssize_t length = read(watch.get(), events, sizeof events);
  for (ssize_t at = 0; at < length;) {
    const auto* event = reinterpret_cast<const inotify_event*>(events + at);
    EXPECT_TRUE(event->mask & IN_ISDIR) << event->name;
    at += static_cast<ssize_t>(sizeof *event + event->len);
  }
}

// Looks at no files: a scratch host has the machine's /usr.
agent::Survey quickSurvey(std::vector<std::string> excludes = {}) {
  return agent::surveyHere({std::move(excludes), 0});
}

const agent::SurveyedFileSystem* find(const agent::Survey& survey, const std::string& place) {
  for (const auto& mount : survey.fileSystems) {
    if (mount.mountPoint == place) return &mount;
  }
  return nullptr;
}

TEST(Excluded, IsAMountPointWithAPatternForItOrForAPlaceAbove) {
  const std::vector<std::string> patterns = {"/data/*", "/srv"};
  for (const char* left : {"/data", "/data/a/b", "/srv", "/srv/x"}) {
    EXPECT_TRUE(agent::isLeftOut(left, patterns)) << left;
  }
  for (const char* copied : {"/", "/data2", "/home"}) {
    EXPECT_FALSE(agent::isLeftOut(copied, patterns)) << copied;
  }
}

TEST(Remote, AreFileSystemsOfOtherMachines) {
  for (const char* type :
       {"nfs", "nfs4", "cifs", "smb3", "ceph", "glusterfs", "fuse.sshfs", "9p"}) {
    EXPECT_TRUE(agent::isRemoteType(type)) << type;
  }
  for (const char* type : {"ext4", "xfs", "btrfs", "fuseblk", "tmpfs"}) {
    EXPECT_FALSE(agent::isRemoteType(type)) << type;
  }
}

TEST(Survey, SwapFilesAreFoundAndPartitionsAreNot) {
  ScratchHost host;
  host.file("/proc/swaps",
            "Filename Type Size Used Priority\n/dev/sda2 partition 1000 0 -2\n"
            "/var/swap\\040file file 2048 0 -3\n");
  host.run([] {
    const auto swaps = quickSurvey().swapFiles;
    ASSERT_EQ(swaps.size(), 1U);
    EXPECT_EQ(swaps[0].path, "/var/swap file");
    EXPECT_EQ(swaps[0].bytes, 2048 * 1024);
  });
}

TEST(Survey, ASparseLastlogHasTwoSizes) {
  ScratchHost().file("/var/log/lastlog", "").run([] {
    ASSERT_EQ(truncate("/var/log/lastlog", 12LL << 30), 0);
    const agent::Survey survey = quickSurvey();
    EXPECT_EQ(survey.lastlogBytes, 12LL << 30);
    EXPECT_EQ(survey.lastlogAllocated, 0);
  });
}

TEST(Survey, StorageOfContainersAndPackagesIsToldOfWhenItHoldsSomething) {
  ScratchHost host;
  host.dir("/var/lib/docker/overlay2").dir("/var/lib/snapd/snaps").dir("/var/lib/lxc");
  host.run([] {
    EXPECT_THAT(quickSurvey().nestedStorage, IsEmpty());
    std::ofstream("/var/lib/docker/overlay2/x") << "x";
    std::ofstream("/var/lib/snapd/snaps/core.snap") << "x";
    EXPECT_THAT(quickSurvey().nestedStorage,
                ElementsAre("/var/lib/docker/overlay2", "/var/lib/snapd/snaps"));
  });
}

TEST(Survey, AccountsThatOwnNothingYetCountAmongTheIds) {
  ScratchHost host;
  host.file("/etc/passwd",
            "root:x:0:0::/root:/bin/sh\nfar:x:100000:7::/:/bin/sh\nodd:x:4294967295:7::/:/\n");
  host.file("/etc/group", "root:x:0:\nfar:x:200000:\n");
  host.run([] {
    const agent::Survey survey = quickSurvey();
    EXPECT_EQ(survey.largestUid, 100000);
    EXPECT_EQ(survey.largestUidPath, "/etc/passwd");
    EXPECT_EQ(survey.largestGid, 200000);
    EXPECT_EQ(survey.largestGidPath, "/etc/group");
  });
}

TEST(Survey, ServicesAreTheScriptsAndThoseOfThemThatRun) {
  ScratchHost host;
  host.file("/etc/init.d/cron", "", 0755).file("/etc/init.d/nginx", "", 0755);
  host.file("/etc/init.d/ssh", "", 0755).file("/etc/init.d/README", "", 0644);
  host.file("/etc/init.d/functions", "", 0755).dir("/run/systemd/system");
  host.tool("/usr/bin/systemctl",
            {.script = "case $1 in\n"
                       "--version) printf 'systemd 241 (241-7)\\n+PAM\\n' ;;\n"
                       "list-units) echo 'nginx.service loaded active running Web';\n"
                       "            echo 'ssh.service loaded active running Shell';\n"
                       "            echo 'dbus.service loaded active running Bus' ;;\n"
                       "esac\n"});
  host.run([] {
    const agent::Survey survey = quickSurvey();
    EXPECT_EQ(survey.systemdVersion, 241);
    EXPECT_THAT(survey.initScripts, ElementsAre("cron", "nginx", "ssh"));
    // Not what carries the connection.
    EXPECT_THAT(survey.runningServices, ElementsAre("nginx"));
  });
}

TEST(Survey, WithoutSystemdServicesRunByTheirProcessIds) {
  ScratchHost host;
  host.file("/etc/init.d/cron", "", 0755).file("/etc/init.d/nginx", "", 0755);
  host.file("/run/nginx.pid", "1\n").file("/run/cron.pid", "999999999\n");
  host.run([] {
    const agent::Survey survey = quickSurvey();
    EXPECT_EQ(survey.systemdVersion, 0);
    EXPECT_THAT(survey.runningServices, ElementsAre("nginx"));
  });
}

TEST(Survey, FileSystemsThatAreNamedButNotMountedAreToldOf) {
  ScratchHost host;
  host.file("/etc/fstab",
            "/dev/sda1 / ext4 defaults 0 1\n/dev/sdb1 /data xfs defaults 0 2\n"
            "nas:/home /net nfs4 defaults 0 0\n/dev/sdc1 /backup ext4 noauto 0 0\n"
            "/dev/sda2 none swap sw 0 0\nnone /cache tmpfs size=1m 0 0\n");
  host.run([] {
    const agent::Survey survey = quickSurvey();
    ASSERT_NE(find(survey, "/data"), nullptr);
    EXPECT_FALSE(find(survey, "/data")->mounted);
    EXPECT_FALSE(find(survey, "/data")->copied);
    ASSERT_NE(find(survey, "/net"), nullptr);
    EXPECT_TRUE(find(survey, "/net")->remote);
    for (const char* place : {"/backup", "none", "/cache"}) {
      EXPECT_EQ(find(survey, place), nullptr) << place;
    }
  });
}

TEST(Survey, ASecondViewOfFilesIsNotCopied) {
  ScratchHost host;
  host.dir("/first").dir("/view").dir("/left").file("/one", "1").file("/other", "2");
  // The scratch host's root is taken for a disk.
  host.file("/proc/filesystems", "nodev\tproc\nnodev\toverlay\n\ttmpfs\n");
  host.run([] {
    ASSERT_EQ(mount("/first", "/view", nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount("/first", "/left", nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount("/one", "/other", nullptr, MS_BIND, nullptr), 0);
    const agent::Survey survey = quickSurvey({"/left/*"});
    ASSERT_NE(find(survey, "/"), nullptr);
    EXPECT_TRUE(find(survey, "/")->copied);
    EXPECT_EQ(find(survey, "/")->reason, "");
    for (const char* place : {"/view", "/left"}) {
      ASSERT_NE(find(survey, place), nullptr) << place;
      EXPECT_TRUE(find(survey, place)->mounted);
      EXPECT_FALSE(find(survey, place)->copied);
      EXPECT_EQ(find(survey, place)->reason, "a second view of other files");
    }
    // One file in another's place is copied as what it shows.
    EXPECT_EQ(find(survey, "/other"), nullptr);
  });
}

// As after "mount DISK /mnt; mount --bind /mnt/a /a; ...; umount /mnt".
TEST(Survey, FoldersOfOneDiskThatAreSeenOnlyOnceAreAllCopied) {
  ScratchHost host;
  host.dir("/disk").dir("/a").dir("/b").dir("/below").dir("/hidden");
  host.file("/proc/filesystems", "nodev\tproc\nnodev\toverlay\n\ttmpfs\n");
  host.run([] {
    ASSERT_EQ(mount("disk", "/disk", "tmpfs", 0, nullptr), 0);
    for (const char* folder : {"/disk/a", "/disk/b", "/disk/b/below", "/disk/b/hidden"})
      ASSERT_EQ(mkdir(folder, 0755), 0);
    ASSERT_EQ(mount("/disk/b/below", "/below", nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount("/disk/b/hidden", "/hidden", nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount("/disk/a", "/a", nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount("/disk/b", "/b", nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(umount("/disk"), 0);
    ASSERT_EQ(mount("over", "/b/hidden", "tmpfs", 0, nullptr), 0);
    agent::Survey survey = quickSurvey({});
    for (const char* place : {"/a", "/b", "/hidden"}) {
      ASSERT_NE(find(survey, place), nullptr) << place;
      EXPECT_TRUE(find(survey, place)->copied) << place;
      EXPECT_EQ(find(survey, place)->reason, "") << place;
    }
    EXPECT_FALSE(find(survey, "/below")->copied);
    EXPECT_EQ(find(survey, "/below")->reason, "a second view of other files");
    // What is not copied with the larger view is no second view.
    survey = quickSurvey({"/b/below"});
    EXPECT_TRUE(find(survey, "/below")->copied);
    EXPECT_EQ(find(survey, "/below")->reason, "");
  });
}

TEST(Survey, SwapFilesDoNotCount) {
  ScratchHost host;
  host.dir("/place").file("/place/kept", std::string(8192, 'x'));
  host.file("/place/swap", std::string(1 << 20, 'x'));
  host.file("/proc/swaps", "Filename Type Size Used Priority\n/place/swap file 1024 0 -2\n");
  host.file("/proc/filesystems", "nodev\tproc\nnodev\toverlay\nnodev\ttmpfs\n\tramfs\n");
  host.run([] {
    const auto bytes = [](const std::vector<std::string>& excludes) {
      // What only the machine's folders hold takes too long to look at.
      std::vector<std::string> all = {"/usr/*", "/dev/*"};
      all.insert(all.end(), excludes.begin(), excludes.end());
      const agent::Survey survey = agent::surveyHere({all, 20});
      EXPECT_TRUE(survey.scanComplete);
      const auto* root = find(survey, "/");
      return root != nullptr && root->counted ? root->bytes : -1;
    };
    const long long counted = bytes({});
    EXPECT_GE(counted, 8192);
    EXPECT_LT(counted, 1 << 20);
    // Not a second time when it was named as well.
    EXPECT_EQ(bytes({"/place/swap"}), counted);
  });
}

class SurveyOperatorTest : public testing::Test {
 protected:
  SurveyOperatorTest() { agent::registerSurveyOperator(); }
  ~SurveyOperatorTest() override {
    agent::OperatorRegistry::instance().remove(agent::kSurveyOperator);
  }
  agent::LocalTransport transport_;
};

TEST_F(SurveyOperatorTest, TellsWhatItSeesOfThisMachine) {
  agent::SurveyClient client(transport_, nullptr, nullptr);
  agent::SurveyRequest request;
  request.timeout = 0;
  const agent::Survey survey = client.survey(request);
  bool root = false;
  for (const auto& mount : survey.fileSystems)
    root = root || (mount.mountPoint == "/" && mount.copied);
  EXPECT_TRUE(root);
  EXPECT_GT(survey.largestUid, 0);
}

TEST_F(SurveyOperatorTest, MeasuringWithoutAPluginSaysSo) {
  agent::SurveyClient client(transport_, nullptr, nullptr);
  try {
    client.measure({});
    FAIL();
  } catch (const std::exception& problem) {
    EXPECT_STREQ(problem.what(), "no plug-in offers the hardware calculator");
  }
}

TEST_F(SurveyOperatorTest, SettingsThatMakeNoSenseAreRefused) {
  agent::SurveyClient client(transport_, nullptr, nullptr);
  agent::MeasureSettings settings;
  settings.duration = -1;
  EXPECT_THROW(client.measure(settings), std::runtime_error);
  settings = {};
  settings.procScale = 0;
  EXPECT_THROW(client.measure(settings), std::runtime_error);
}

TEST_F(SurveyOperatorTest, ACallerWithoutTheRightIsRefused) {
  boost::intrusive_ptr<QXL::QXLMessageIterator> in(new agent::Message());
  boost::intrusive_ptr<agent::Message> out(new agent::Message());
  agent::CurrentRequest request;
  request.client.uid = 65534;
  request.client.account = "nobody";
  const agent::CurrentRequestScope scope(
      request, boost::intrusive_ptr<QXL::QXLRequestContextPrototype>(new agent::RequestContext()));
  agent::OperatorRegistry::instance()
      .find(agent::kSurveyOperator)
      ->newOperator()
      ->process(agent::kMethodSurvey, in, out);
  ASSERT_TRUE(out->firstError());
  EXPECT_EQ(out->firstError()->first, 414);
}

TEST(KeptConnection, IsTheOneThatOthersGetWhileItLives) {
  const QXL::QXLConnectionInfo local{"local", {}};
  QXL::QXLRequestTransport* first = nullptr;
  {
    const agent::KeptConnection kept(local, nullptr);
    first = &kept.transport();
    EXPECT_EQ(agent::connect(local, nullptr).get(), first);
    EXPECT_NE(agent::connect({"local", {"Port=1"}}, nullptr).get(), first);
  }
  const auto later = agent::connect(local, nullptr);
  EXPECT_NE(agent::connect(local, nullptr).get(), later.get());
}

}  // namespace
