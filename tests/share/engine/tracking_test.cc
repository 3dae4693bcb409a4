// The second pass, which goes where the kernel says that something changed. Each test has
// file systems of its own, in a mount namespace of its own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "host/copy_report.h"
#include "share/engine/case_folding.h"
#include "share/engine/change_watch.h"
#include "share/engine/changes_report.h"
#include "share/engine/file_events.h"
#include "share_tests/engine/random_tree.h"
#include "share_tests/engine/seed.h"
#include "share_tests/transfer.h"
#include "share_tests/tree_picture.h"
#include "support/child_test.h"
#include "support/failing_call.h"
#include "support/temp_tree.h"

using engine::ChangesReport;
using test_support::dirAt;
using test_support::TempTree;

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr int kDirectories = 40;  // of the usual source, beside its top

void write(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::app) << text;
}

// Is old enough that a change shows in its times.
void settle() { std::this_thread::sleep_for(milliseconds(60)); }

bool soon(milliseconds limit, const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(milliseconds(20));
  }
  return true;
}

std::string commandOf(const fs::path& process) {
  std::ifstream file(process / "cmdline");
  std::string words;
  std::getline(file, words);
  return words;
}

// Not one that has ended and waits to be asked.
bool runs(pid_t process) { return !commandOf("/proc/" + std::to_string(process)).empty(); }

// The tracker of a folder; 0 if there is none.
pid_t trackerOf(const std::string& folder) {
  for (const auto& process : fs::directory_iterator("/proc")) {
    const std::string words = commandOf(process.path());
    if (words.find("--track-changes") != std::string::npos &&
        words.find(folder) != std::string::npos)
      return std::stoi(process.path().filename());
  }
  return 0;
}

// What the report of the last copy says of changes.
std::string told(const std::string& report) {
  for (const std::string& note : host::parseCopyReport(test_support::readFile(report)).notes)
    if (note.starts_with("changes on ")) return note;
  return "";
}

// What is copied, on a file system of its own, and what copies it.
class Source {
 public:
  enum Kind { kTmpfs, kExt4, kExt4OfWholeSeconds };
  explicit Source(Kind kind = kTmpfs) : mount_(tree_.path("from"), kind) {
    ::setenv("QX_RSYNC_ENGINE", "own", 1);
    ::setenv("QXA_TMPDIR", agent().c_str(), 1);
    ::unsetenv("QX_RSYNC_TRACK");
    ::setenv(host::kCopyReportVariable, report().c_str(), 1);
    for (int i = 0; i < kDirectories; ++i) {
      const std::string name = at("d" + std::to_string(i));
      fs::create_directory(name);
      write(name + "/file", "contents");
    }
  }

  std::string at(const std::string& name) const { return tree_.path("from/" + name); }
  std::string copyOf(const std::string& name) const { return tree_.path("to/" + name); }
  std::string elsewhere() const { return tree_.path("elsewhere"); }
  std::string agent() const { return tree_.path("agent"); }
  std::string report() const { return tree_.path("report"); }
  pid_t tracker() const { return trackerOf(agent()); }

  // One pass, after which the copy is what the source is. Keeps what it says of changes.
  void pass() {
    settle();
    Transfer run(at(""), tree_.path("to"));
    run.start(pipeChannel());
    run.expectBothEndWith(0);
    said_ = told(report());
    EXPECT_EQ(differences(tree_.path("to"), tree_.path("from")), "") << "the copy | the source";
  }
  bool says(const std::string& text) const { return said_.find(text) != std::string::npos; }
  const std::string& said() const { return said_; }
  int visited() const {
    const size_t end = said_.find(" director");
    const size_t begin = end == std::string::npos ? end : said_.rfind(' ', end - 1);
    return begin == std::string::npos ? -1 : std::stoi(said_.substr(begin + 1));
  }
  // A pass that went to so many directories, and by what the kernel has told.
  void expectTracked(int directories) {
    pass();
    EXPECT_TRUE(says("on /: tracked;")) << said_;
    EXPECT_EQ(visited(), directories) << said_;
  }

 private:
  // The last thing to go: a tracker ends when the folder has gone.
  NoProcessLeftBehind processes_;
  TempTree tree_{dirAt("to"), dirAt("agent"), dirAt("elsewhere")};
  // What is mounted is unmounted before the tree goes, tracker or not: it holds nothing.
  struct Mount {
    Mount(std::string path, Kind kind) : path_(std::move(path)) {
      fs::create_directory(path_);
      if (kind == kTmpfs) {
        EXPECT_EQ(::mount("none", path_.c_str(), "tmpfs", 0, "mode=0755"), 0);
        return;
      }
      const std::string image = path_ + ".image";
      std::ofstream(image).close();
      fs::resize_file(image, 64 << 20);
      const char* inodeSize = kind == kExt4OfWholeSeconds ? "128" : "256";
      EXPECT_EQ(runProgram({"/sbin/mkfs.ext4", "-q", "-I", inodeSize, image}), 0);
      EXPECT_EQ(runProgram({"/bin/mount", "-o", "loop", image, path_}), 0);
      fs::remove(path_ + "/lost+found");  // as its times are whole seconds, it is not trusted
    }
    ~Mount() { EXPECT_EQ(::umount(path_.c_str()), 0) << "something keeps the file system busy"; }
    std::string path_;
  } mount_;
  std::string said_;
};

void inOwnNamespace(const std::function<void()>& body) {
  if (::geteuid() != 0) GTEST_SKIP() << "NOT TESTED: this needs root";
  test_support::runInChild([&] {
    ASSERT_EQ(::unshare(CLONE_NEWNS), 0);
    ASSERT_EQ(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
    body();
  });
}

// Stores that leave no trace in the file's times, as the page is writable already.
class Mapping {
 public:
  explicit Mapping(const std::string& path) {
    const Fd file(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    void* at = ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
    EXPECT_NE(at, MAP_FAILED);
    bytes_ = static_cast<volatile char*>(at);
    store('1');
  }
  ~Mapping() { ::munmap(const_cast<char*>(bytes_), 4096); }
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;
  void store(char value) { bytes_[0] = value; }

 private:
  volatile char* bytes_;
};

}  // namespace

TEST(Tracking, OnlyDirectoriesWhereSomethingChangedAreVisited) {
  inOwnNamespace([] {
    Source source;
    source.pass();
    EXPECT_EQ(source.said(), "");
    write(source.at("d3/file"), "more");
    write(source.at("d7/new"), "new");
    fs::remove(source.at("d9/file"));
    source.expectTracked(3);
    source.expectTracked(0);
    ASSERT_EQ(::chmod(source.at("d3/file").c_str(), 0600), 0);
    ASSERT_EQ(::setxattr(source.at("d4/file").c_str(), "trusted.x", "y", 1, 0), 0);
    ASSERT_EQ(::chmod(source.at("d5").c_str(), 0700), 0);
    source.expectTracked(3);
  });
}

TEST(Tracking, WithoutItEverythingIsLookedAt) {
  inOwnNamespace([] {
    Source source;
    ::setenv("QX_RSYNC_TRACK", "0", 1);
    source.pass();
    EXPECT_EQ(source.tracker(), 0);
    write(source.at("d3/file"), "more");
    source.pass();
    EXPECT_TRUE(source.says("on / (tmpfs): looked for everywhere, as nothing watched it;"))
        << source.said();
    EXPECT_EQ(source.visited(), kDirectories + 1);
  });
}

TEST(Tracking, RandomChangesMakeTheSource) {
  inOwnNamespace([] {
    const unsigned begin = testSeed();
    for (unsigned seed = begin; seed < begin + 2; ++seed) {
      SCOPED_TRACE("QX_TEST_SEED=" + std::to_string(seed));
      Source source;
      RandomTree tree(source.at(""), seed);
      tree.hideSomeChanges();
      tree.grow(80);
      source.pass();
      for (int i = 0; i < 5; ++i) {
        tree.mutate(8);
        source.pass();
        EXPECT_TRUE(source.says("on /: tracked;")) << source.said();
        if (HasFailure()) return;
      }
    }
  });
}

// Where times are whole seconds, a file that has just been made is taken for changed by
// whoever looks at it, which shows in its copy. Unless the pass comes late.
TEST(Tracking, EntriesThatHaveNotChangedAreNotLookedAt) {
  inOwnNamespace([] {
    constexpr int kTries = 5;
    bool shown = false;
    for (int i = 0; i < kTries && !shown && !testing::Test::HasFailure(); ++i) {
      Source source(Source::kExt4OfWholeSeconds);
      for (const char* name : {"d3/other", "d4/other", "d5/other"})
        write(source.at(name), "contents");
      fs::create_hard_link(source.at("d5/file"), source.at("d5/File"));
      source.pass();
      const auto changed = [&](const std::string& name) {
        struct stat status {};
        EXPECT_EQ(::stat(source.copyOf(name).c_str(), &status), 0);
        return std::pair(status.st_ctim.tv_sec, status.st_ctim.tv_nsec);
      };
      const auto named = changed("d3/other");
      const auto whole = changed("d4/other");
      const auto folded = changed("d5/other");
      write(source.at("d3/file"), "more");
      write(source.at("d5/file"), "more");  // as if another name reached the same entry
      ASSERT_EQ(::chmod(source.at("d4").c_str(), 0700), 0);
      source.expectTracked(3);
      shown = changed("d4/other") != whole;
      EXPECT_EQ(changed("d3/other"), named);
      EXPECT_EQ(changed("d5/other") != folded, shown);
    }
    EXPECT_TRUE(shown) << "every first pass took longer than two seconds";
  });
}

TEST(Tracking, WhatIsKnownOfTheOtherEntriesStays) {
  inOwnNamespace([] {
    Source source;
    for (int i = 0; i < 100; ++i) write(source.at("d3/other" + std::to_string(i)), "contents");
    source.pass();
    write(source.at("d3/file"), "more");
    write(source.at("d3/new"), "new");
    write(source.at("d3/passing"), "nothing");
    fs::remove(source.at("d3/passing"));
    fs::remove(source.at("d3/other7"));
    fs::rename(source.at("d3/other8"), source.at("d3/renamed"));
    fs::rename(source.at("d3/other9"), source.at("d3/other10"));
    source.expectTracked(1);
    // By the manifest, without the tracker.
    signalOne(source.tracker(), SIGKILL);
    ASSERT_TRUE(soon(milliseconds(2000), [&] { return source.tracker() == 0; }));
    write(source.at("d3/other11"), "more");
    fs::remove(source.at("d3/other12"));
    fs::remove(source.at("d3/renamed"));
    source.pass();
    EXPECT_EQ(source.visited(), kDirectories + 1);
  });
}

// The walk comes to the directory twice: for a name that was told, and for another name of
// a file that was changed elsewhere.
TEST(Tracking, WhatWasLearntOfAnEntryStaysWhenItsDirectoryIsComeBackTo) {
  inOwnNamespace([] {
    Source source;
    const auto rewrite = [&](const std::string& text) {
      std::fstream(source.at("d1/file")) << text;  // in place
    };
    fs::create_hard_link(source.at("d2/file"), source.at("d1/linked"));
    source.pass();
    struct stat first {};
    ASSERT_EQ(::stat(source.at("d1/file").c_str(), &first), 0);
    rewrite("CONTENTS");
    write(source.at("d2/file"), "more");
    source.expectTracked(2);
    rewrite("contents");
    const timespec times[2] = {first.st_atim, first.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, source.at("d1/file").c_str(), times, 0), 0);
    source.expectTracked(1);
  });
}

TEST(Tracking, EntryThatCannotBeLookedAtStays) {
  inOwnNamespace([] {
    Source source;
    fs::create_directory(source.at("d1/99"));
    for (const char* name : {"d1/99/1", "d1/99/2"}) write(source.at(name), "contents");
    source.pass();
    write(source.at("d1/99/1"), "more");
    settle();
    const Channel channel = pipeChannel();
    ProgramRun client({builtRsync(), "-ESHa", "--numeric-ids", "--delete", "--fdin",
                       std::to_string(channel.client.in.get()), "--fdout",
                       std::to_string(channel.client.out.get()), "0.0.0.0:/", source.copyOf("")});
    client.inherit(channel.client.in.get());
    client.inherit(channel.client.out.get());
    client.start();
    test_support::runInChild([&] {
      test_support::failSystemCall(SYS_newfstatat, EACCES,
                                   test_support::CallArgument{3, AT_SYMLINK_NOFOLLOW});
      ProgramRun server({builtRsync(), "--server", "--sender", "-ESHa", "--numeric-ids", "--delete",
                         ".", source.at("")});
      server.setInput(channel.server.in.get());
      server.setOutput(channel.server.out.get());
      server.start();
      EXPECT_EQ(server.exitStatus(), 23) << server.err();
    });
    EXPECT_EQ(client.exitStatus(), 23);
    EXPECT_NE(client.err().find("'/d1/99/1': cannot look at it: Permission denied"),
              std::string::npos)
        << client.err();
    EXPECT_EQ(test_support::readFile(source.copyOf("d1/99/1")), "contents");
    source.expectTracked(1);
  });
}

TEST(Tracking, EntryThatBecameSomethingElseIsThat) {
  inOwnNamespace([] {
    Source source;
    for (const char* name : {"a/b", "c"}) fs::create_directories(source.at("d1/") + name);
    for (const char* name : {"a/b/file", "c/file"}) write(source.at("d1/") + name, "text");
    source.pass();
    fs::remove_all(source.at("d1/a"));
    write(source.at("d1/a"), "a file");
    fs::remove(source.at("d2/file"));
    fs::create_directories(source.at("d2/file/in/it"));
    fs::remove(source.at("d3/file"));
    fs::create_symlink("target", source.at("d3/file"));
    fs::rename(source.at("d1/c"), source.at("d4/c"));
    fs::create_directory(source.at("d1/c"));
    write(source.at("d1/c/another"), "text");
    source.pass();
    EXPECT_TRUE(source.says("on /: tracked;")) << source.said();
    EXPECT_LT(source.visited(), 12);
  });
}

TEST(Tracking, FileWithTwoNamesInOneDirectoryIsChangedUnderBoth) {
  inOwnNamespace([] {
    Source source;
    fs::create_hard_link(source.at("d1/file"), source.at("d1/other"));
    fs::create_hard_link(source.at("d1/file"), source.at("d1/third"));
    source.pass();
    write(source.at("d1/other"), "more");
    source.expectTracked(1);
    fs::remove(source.at("d1/file"));
    write(source.at("d1/third"), "more");
    source.expectTracked(1);
  });
}

TEST(Tracking, ManyEntriesOfOneDirectoryAreTold) {
  inOwnNamespace([] {
    Source source;
    for (int i = 0; i < 4200; ++i) write(source.at("d1/f" + std::to_string(i)), "x");
    source.pass();
    for (int i = 0; i < 700; ++i) write(source.at("d1/f" + std::to_string(i)), "more");
    source.expectTracked(1);
    for (int i = 0; i < 4150; ++i) fs::remove(source.at("d1/f" + std::to_string(i)));
    source.expectTracked(1);
  });
}

TEST(Tracking, NamesAreForgottenBeforeDirectoriesAre) {
  inOwnNamespace([] {
    Source source;
    ::setenv("QX_RSYNC_TRACK", "10", 1);
    source.pass();
    for (int i = 0; i < 30; ++i) write(source.at("d1/f" + std::to_string(i)), "x");
    for (int i = 0; i < 8; ++i) write(source.at("d" + std::to_string(i) + "/file"), "more");
    source.expectTracked(8);
  });
}

TEST(Tracking, NamesThatDifferByCaseOnlyAreTold) {
  inOwnNamespace([] {
    Source source;
    write(source.at("d1/File"), "another");
    fs::create_hard_link(source.at("d2/file"), source.at("d2/File"));
    source.pass();
    write(source.at("d1/File"), "more");
    write(source.at("d2/File"), "more");
    fs::remove(source.at("d1/file"));
    source.expectTracked(2);
  });
}

TEST(Tracking, MovedDirectoryIsNewWhereItIsAndGoneWhereItWas) {
  inOwnNamespace([] {
    Source source;
    fs::create_directories(source.at("d1/a/b/c"));
    write(source.at("d1/a/b/c/deep"), "deep");
    source.pass();
    fs::rename(source.at("d1/a"), source.at("d2/z"));
    source.expectTracked(5);  // d1, d2, z, b, c
    write(source.at("d2/z/b/c/deep"), "er");
    source.expectTracked(1);
  });
}

TEST(Tracking, DirectoriesThatChangedPlacesAreTold) {
  inOwnNamespace([] {
    Source source;
    for (const char* name : {"d1/same", "d2/same"}) {
      fs::create_directory(source.at(name));
      write(source.at(name) + "/file", name);
    }
    source.pass();
    fs::rename(source.at("d1"), source.at("x"));
    fs::rename(source.at("d2"), source.at("d1"));
    fs::rename(source.at("x"), source.at("d2"));
    source.expectTracked(5);
    fs::rename(source.at("d1/same"), source.at("x"));
    fs::rename(source.at("d2/same"), source.at("d1/same"));
    fs::rename(source.at("x"), source.at("d2/same"));
    write(source.at("d1/same/new"), "in the one that came here");
    write(source.at("d2/same/file"), "in the other");
    source.expectTracked(5);
  });
}

TEST(Tracking, DirectoryMadeAnewWithTheOldNumberIsTold) {
  inOwnNamespace([] {
    Source source(Source::kExt4);  // which uses numbers again at once
    write(source.at("moved"), "text");
    source.pass();
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(::stat(source.at("d1").c_str(), &before), 0);
    fs::remove_all(source.at("d1"));
    fs::create_directory(source.at("d1"));
    ASSERT_EQ(::stat(source.at("d1").c_str(), &after), 0);
    ASSERT_EQ(before.st_ino, after.st_ino);
    write(source.at("d1/new"), "the only entry that is told");
    source.expectTracked(2);
    source.expectTracked(0);
  });
}

TEST(Tracking, FileSystemOnADiskIsTrackedToo) {
  inOwnNamespace([] {
    Source source(Source::kExt4);
    fs::create_directories(source.at("d1/a/b"));
    fs::create_hard_link(source.at("d8/file"), source.at("d1/a/b/other"));
    source.pass();
    write(source.at("d3/file"), "more");
    write(source.at("d1/a/b/other"), "more");
    fs::rename(source.at("d1/a"), source.at("d2/a"));
    source.expectTracked(6);  // d1, d2, d3, d8, a, b
    source.expectTracked(0);
  });
}

TEST(Tracking, FileWithSeveralNamesIsChangedUnderAllOfThem) {
  inOwnNamespace([] {
    Source source;
    fs::create_hard_link(source.at("d1/file"), source.at("d2/other"));
    fs::create_hard_link(source.at("d1/file"), source.at("d3/third"));
    source.pass();
    write(source.at("d2/other"), "more");
    source.expectTracked(3);
    fs::create_hard_link(source.at("d1/file"), source.at("d4/fourth"));
    source.expectTracked(4);
  });
}

TEST(Tracking, FileChangedByANameThatIsGoneIsChangedUnderTheOthers) {
  inOwnNamespace([] {
    Source source;
    fs::create_hard_link(source.at("d1/file"), source.at("d2/other"));
    fs::create_hard_link(source.at("d5/file"), source.at("d6/other"));
    fs::create_directories(source.at("d7/below/more"));
    fs::create_hard_link(source.at("d8/file"), source.at("d7/below/more/other"));
    source.pass();
    write(source.at("d2/other"), "more");
    fs::remove(source.at("d2/other"));
    write(source.at("d6/other"), "more");
    fs::remove_all(source.at("d6"));
    write(source.at("d7/below/more/other"), "more");
    fs::remove_all(source.at("d7/below"));
    source.pass();
    EXPECT_TRUE(source.says("on /: tracked;")) << source.said();
    EXPECT_LT(source.visited(), 10);
  });
}

TEST(Tracking, StoresIntoSharedMemoryAreCarriedOver) {
  inOwnNamespace([] {
    Source source;
    fs::resize_file(source.at("d1/file"), 4096);
    fs::resize_file(source.at("d2/file"), 4096);
    auto first = std::make_unique<Mapping>(source.at("d1/file"));
    Mapping second(source.at("d2/file"));
    source.pass();
    first->store('2');
    first.reset();
    second.store('2');
    source.expectTracked(2);
    second.store('3');
    source.expectTracked(1);
  });
}

TEST(Tracking, WriterWhoHasHadTheFileOpenSinceBeforeIsNoticed) {
  inOwnNamespace([] {
    Source source;
    const Fd file(::open(source.at("d1/file").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    source.pass();
    ASSERT_EQ(::write(file.get(), "more", 4), 4);
    source.expectTracked(1);
    source.expectTracked(1);  // it may be written to in ways that nobody tells
  });
}

TEST(Tracking, FileThatCouldNotBeReadIsTriedAgain) {
  inOwnNamespace([] {
    Source source;
    // Whoever holds a lease is asked first, and does not answer.
    ASSERT_NE(::signal(SIGIO, SIG_IGN), SIG_ERR);
    Fd file(::open(source.at("d1/file").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(::fcntl(file.get(), F_SETLEASE, F_WRLCK), 0);
    settle();
    transfer(source.at(""), source.copyOf(""), {}, 23);
    ASSERT_EQ(::fcntl(file.get(), F_SETLEASE, F_UNLCK), 0);
    EXPECT_FALSE(fs::exists(source.copyOf("d1/file")));
    source.expectTracked(1);
  });
}

TEST(Tracking, TooManyChangesMeanThatEverythingIsLookedAt) {
  inOwnNamespace([] {
    Source source;
    ::setenv("QX_RSYNC_TRACK", "5", 1);
    source.pass();
    for (int i = 0; i < 10; ++i) write(source.at("d" + std::to_string(i) + "/file"), "more");
    source.pass();
    EXPECT_TRUE(source.says("on / (tmpfs): looked for everywhere, as too much has changed;"))
        << source.said();
    EXPECT_EQ(source.visited(), kDirectories + 1);
    write(source.at("d1/file"), "more");
    source.expectTracked(1);
  });
}

TEST(Tracking, RemovedFilesTakeNoRoom) {
  inOwnNamespace([] {
    Source source;
    ::setenv("QX_RSYNC_TRACK", "50", 1);
    source.pass();
    for (int i = 0; i < 1000; ++i) {
      write(source.at("d1/temporary"), "x");
      fs::remove(source.at("d1/temporary"));
    }
    source.expectTracked(1);
  });
}

TEST(Tracking, KilledTrackerMeansThatEverythingIsLookedAt) {
  inOwnNamespace([] {
    Source source;
    source.pass();
    const pid_t tracker = source.tracker();
    ASSERT_GT(tracker, 0);
    signalOne(tracker, SIGKILL);
    ASSERT_TRUE(soon(milliseconds(2000), [&] { return source.tracker() == 0; }));
    write(source.at("d3/file"), "more");
    source.pass();
    EXPECT_TRUE(source.says("as nothing watched it;")) << source.said();
    EXPECT_EQ(source.visited(), kDirectories + 1);
  });
}

TEST(Tracking, TrackerEndsWhenItsFolderIsGone) {
  inOwnNamespace([] {
    Source source;
    source.pass();
    ASSERT_GT(source.tracker(), 0);
    fs::remove_all(source.agent());
    EXPECT_TRUE(soon(milliseconds(2000), [&] { return source.tracker() == 0; }));
    EXPECT_FALSE(fs::exists(source.agent()));
  });
}

TEST(Tracking, TrackerEndsWithItsAgent) {
  inOwnNamespace([] {
    Source source;
    // What runs from the folder and starts the sender is the agent.
    fs::copy_file("/bin/sh", source.agent() + "/sh");
    write(source.agent() + "/agent", "#!" + source.agent() + "/sh\n" + builtRsync() +
                                         " \"$@\"\nread -r end <" + source.agent() +
                                         "/end\nexit 0\n");
    fs::permissions(source.agent() + "/agent", fs::perms::owner_all);
    const std::string end = source.agent() + "/end";
    ASSERT_EQ(::mkfifo(end.c_str(), 0600), 0);
    Transfer run(source.at(""), source.copyOf(""));
    run.useServer(source.agent() + "/agent");
    run.start(pipeChannel());
    EXPECT_EQ(run.client().exitStatus(), 0) << run.client().err();
    std::this_thread::sleep_for(milliseconds(1500));
    EXPECT_GT(source.tracker(), 0);
    write(end, "\n");
    EXPECT_EQ(run.server().exitStatus(), 0) << run.server().err();
    EXPECT_TRUE(soon(milliseconds(2000), [&] { return source.tracker() == 0; }));
  });
}

TEST(Tracking, TrackerEndsWithAPassThatFails) {
  inOwnNamespace([] {
    Source source;
    ::setenv("QX_RSYNC_BWLIMIT", "10", 1);
    fs::resize_file(source.at("d1/file"), 1 << 20);
    write(source.at("d1/file"), std::string(1 << 20, 'x'));
    Transfer run(source.at(""), source.copyOf(""));
    run.start(pipeChannel());
    ASSERT_TRUE(soon(milliseconds(5000), [&] { return source.tracker() > 0; }));
    signalOne(run.server().pid(), SIGKILL);
    EXPECT_NE(run.client().exitStatus(), 0);
    run.server().exitStatus();
    EXPECT_TRUE(soon(milliseconds(2000), [&] { return source.tracker() == 0; }));
    ::unsetenv("QX_RSYNC_BWLIMIT");
  });
}

TEST(Tracking, TrackerHasNothingOfTheOneThatStartedIt) {
  inOwnNamespace([] {
    Source source;
    source.pass();
    const std::string process = "/proc/" + std::to_string(source.tracker());
    for (const auto& one : fs::directory_iterator(process + "/fd")) {
      const std::string target = fs::read_symlink(one.path());
      EXPECT_TRUE(target == "/dev/null" || target.starts_with("socket:") ||
                  target == "anon_inode:[fanotify]")
          << target;
    }
    EXPECT_EQ(fs::read_symlink(process + "/cwd"), "/");
    EXPECT_NE(::getsid(source.tracker()), ::getsid(0));
  });
}

TEST(Tracking, NewPassFromTheBeginningTakesTheTrackersPlace) {
  inOwnNamespace([] {
    Source source;
    source.pass();
    const pid_t first = source.tracker();
    fs::remove_all(source.copyOf(""));
    fs::create_directory(source.copyOf(""));
    source.pass();
    EXPECT_TRUE(soon(milliseconds(2000), [&] { return !runs(first); }));
    write(source.at("d3/file"), "more");
    source.expectTracked(1);
  });
}

TEST(Tracking, ChangeThroughAnotherMountIsNoticed) {
  inOwnNamespace([] {
    Source source;
    ASSERT_EQ(::mount(source.at("").c_str(), source.elsewhere().c_str(), nullptr, MS_BIND, nullptr),
              0);
    source.pass();
    write(source.elsewhere() + "/d3/file", "more");
    EXPECT_EQ(::umount(source.elsewhere().c_str()), 0);
    source.expectTracked(1);
  });
}

TEST(Tracking, DirectoryThatIsSeenTwiceIsVisitedTwice) {
  inOwnNamespace([] {
    Source source;
    fs::create_directory(source.at("again"));
    ASSERT_EQ(
        ::mount(source.at("d3").c_str(), source.at("again").c_str(), nullptr, MS_BIND, nullptr), 0);
    source.pass();
    write(source.at("d3/file"), "more");
    write(source.at("d4/file"), "more");
    source.expectTracked(3);
    EXPECT_EQ(::umount(source.at("again").c_str()), 0);
  });
}

TEST(Tracking, WhatWasMountedOrUnmountedSinceIsGoneThrough) {
  inOwnNamespace([] {
    Source source;
    fs::create_directories(source.at("d1/below/more"));
    fs::create_directories(source.at("d2/below/more"));
    ASSERT_EQ(::mount("none", source.at("d1/below").c_str(), "tmpfs", 0, "mode=0755"), 0);
    fs::create_directories(source.at("d1/below/x/y"));
    source.pass();
    ASSERT_EQ(::umount(source.at("d1/below").c_str()), 0);
    ASSERT_EQ(::mount("none", source.at("d2/below").c_str(), "tmpfs", 0, "mode=0755"), 0);
    fs::create_directories(source.at("d2/below/z"));
    source.pass();
    EXPECT_TRUE(source.says("on /: tracked;")) << source.said();
    EXPECT_TRUE(source.says("on /d2/below (tmpfs): looked for everywhere, as it was mounted since"))
        << source.said();
    EXPECT_LT(source.visited(), 10);
    ASSERT_EQ(::umount(source.at("d2/below").c_str()), 0);
    source.pass();
    EXPECT_LT(source.visited(), 10);
  });
}

TEST(Tracking, FileThatSomethingWasMountedOverIsThat) {
  inOwnNamespace([] {
    Source source;
    write(source.at("top"), "contents");
    write(source.elsewhere() + "/other", "something else");
    source.pass();
    for (const char* name : {"d1/file", "top"})
      ASSERT_EQ(::mount((source.elsewhere() + "/other").c_str(), source.at(name).c_str(), nullptr,
                        MS_BIND, nullptr),
                0);
    source.pass();
    EXPECT_TRUE(source.says("on /: tracked;")) << source.said();
    EXPECT_EQ(test_support::readFile(source.copyOf("d1/file")), "something else");
    for (const char* name : {"d1/file", "top"}) ASSERT_EQ(::umount(source.at(name).c_str()), 0);
    source.pass();
    EXPECT_EQ(test_support::readFile(source.copyOf("d1/file")), "contents");
  });
}

TEST(Tracking, FileSystemThatCannotBeWatchedIsGoneThrough) {
  inOwnNamespace([] {
    Source source;
    for (const char* name : {"lower", "upper", "work"}) fs::create_directory(source.at(name));
    fs::create_directories(source.at("over/not/seen"));
    const std::string options = "lowerdir=" + source.at("lower") +
                                ",upperdir=" + source.at("upper") + ",workdir=" + source.at("work");
    ASSERT_EQ(::mount("none", source.at("over").c_str(), "overlay", 0, options.c_str()), 0);
    fs::create_directories(source.at("over/a/b"));
    source.pass();
    write(source.at("over/a/b/file"), "text");
    write(source.at("d3/file"), "more");
    source.pass();
    EXPECT_TRUE(source.says("on /: tracked; "));
    EXPECT_TRUE(
        source.says("; on /over (overlay): looked for everywhere, as the file system "
                    "cannot be watched; "))
        << source.said();
    EXPECT_LT(source.visited(), 10);
    EXPECT_EQ(::umount(source.at("over").c_str()), 0);
  });
}

TEST(Tracking, WhatIsExcludedIsNotVisited) {
  inOwnNamespace([] {
    Source source;
    fs::create_directories(source.at("d1/not/this"));
    const std::vector<std::string> exclusions = {"--exclude=/d1/not", "--exclude=/d2/left"};
    settle();
    transfer(source.at(""), source.copyOf(""), exclusions);
    write(source.at("d1/not/this/file"), "text");
    write(source.at("d2/file"), "more");
    write(source.at("d2/left"), "out");
    settle();
    Transfer run(source.at(""), source.copyOf(""), exclusions);
    run.start(pipeChannel());
    run.expectBothEndWith(0);
    const std::string said = told(source.report());
    EXPECT_NE(said.find("on /: tracked; 1 directory visited"), std::string::npos) << said;
    EXPECT_FALSE(fs::exists(source.copyOf("d1/not")));
    EXPECT_FALSE(fs::exists(source.copyOf("d2/left")));
    EXPECT_EQ(fs::file_size(source.copyOf("d2/file")), fs::file_size(source.at("d2/file")));
  });
}

TEST(TrackingParts, ReportSurvivesAndIsMadeHarmless) {
  ChangesReport report;
  report.places = {{"", "ext4", ChangesReport::How::kTracked},
                   {"srv\x1b[2J", "nfs4", ChangesReport::How::kUnwatchable}};
  report.further = 3;
  report.directories = 12;
  engine::Buffer bytes;
  engine::putReport(bytes, report);
  EXPECT_EQ(engine::takeReport(bytes.view()), report);
  EXPECT_EQ(engine::textOf(report),
            "changes on /: tracked; on /srv\\x1b[2J (nfs4): looked for everywhere, as the file "
            "system cannot be watched; and 3 more; 12 directories visited");
  for (size_t i = 0; i < bytes.size(); ++i)
    EXPECT_THROW(engine::takeReport(bytes.view().substr(0, i)), engine::ProtocolError);
}

TEST(TrackingParts, ReportHasBounds) {
  ChangesReport report;
  for (int i = 0; i < 1000; ++i)
    report.places.push_back({std::string(500, 'p'), "t", ChangesReport::How::kMounted});
  engine::Buffer bytes;
  engine::putReport(bytes, report);
  EXPECT_LE(bytes.size(), 2000U);
  EXPECT_EQ(engine::takeReport(bytes.view()).further, 1000U - 16);
  for (const std::string& text :
       {engine::textOf(report), engine::textOf(engine::takeReport(bytes.view()))}) {
    EXPECT_LE(text.size(), 1000U);
    EXPECT_TRUE(
        text.ends_with("looked for everywhere, as it was mounted since; and 995 more; "
                       "0 directories visited"))
        << text;
  }
  engine::Buffer tooMany;
  engine::putNumber(tooMany, 17);
  EXPECT_THROW(engine::takeReport(tooMany.view()), engine::ProtocolError);
}

TEST(TrackingParts, EventsThatAreNotUnderstoodMeanThatSomethingIsMissing) {
  const auto ignore = [](std::string_view, std::string_view) {};
  EXPECT_TRUE(engine::readEvents("", ignore));
  EXPECT_FALSE(engine::readEvents("x", ignore));
  EXPECT_FALSE(engine::readEvents(std::string(24, '\0'), ignore));
  EXPECT_FALSE(engine::readEvents(std::string(24, '\xff'), ignore));
}

TEST(TrackingParts, CaseIsFoldedWhereAnotherNameReachesTheSameFile) {
  const TempTree tree{dirAt("d")};
  const std::string top = tree.path("d");
  const Fd directory(::open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  write(top + "/name", "x");
  write(top + "/12", "x");
  EXPECT_FALSE(engine::mayFoldCase(directory.get(), {"name"}));
  EXPECT_FALSE(engine::mayFoldCase(directory.get(), {"gone", "12", "name"}));
  EXPECT_FALSE(engine::mayFoldCase(directory.get(), {"12", "34"}));
  EXPECT_TRUE(engine::mayFoldCase(directory.get(), {"gone", "12"}));
  write(top + "/Name", "another");
  EXPECT_FALSE(engine::mayFoldCase(directory.get(), {"name"}));
  fs::remove(top + "/Name");
  fs::create_hard_link(top + "/name", top + "/Name");
  EXPECT_TRUE(engine::mayFoldCase(directory.get(), {"name"}));
}

TEST(TrackingParts, PlacesAreJoined) {
  engine::Places places;
  engine::addPlace(places, "a", {"one"});
  engine::addPlace(places, "a", {"two"});
  engine::addPlace(places, "b", {"one"});
  engine::addPlace(places, "b", {});
  engine::addPlace(places, "b", {"two"});
  EXPECT_EQ(places, (engine::Places{{"a", {"one", "two"}}, {"b", {}}}));
}

TEST(TrackingParts, AnswerSurvivesAndItsNamesAreNames) {
  engine::TrackerAnswer answer;
  answer.complete = true;
  answer.note = "note";
  answer.devices = {2049};
  answer.changes = {{"object", {}}, {"another", {"a", "b"}}};
  engine::Buffer bytes;
  engine::putAnswer(bytes, answer);
  EXPECT_EQ(engine::takeAnswer(bytes.view()), answer);
  for (size_t i = 0; i < bytes.size(); ++i)
    EXPECT_THROW(engine::takeAnswer(bytes.view().substr(0, i)), engine::ProtocolError);
  for (const char* name : {"", ".", "..", "a/b"}) {
    answer.changes[1].names = {name};
    engine::Buffer others;
    engine::putAnswer(others, answer);
    EXPECT_THROW(engine::takeAnswer(others.view()), engine::ProtocolError) << name;
  }
}

TEST(TrackingParts, WatchedFileSystemsAreRead) {
  const auto found = engine::watchedFileSystemsIn(
      "pos:\t0\nfanotify flags:612 event-flags:8000\n"
      "fanotify sdev:800001 mflags:0 mask:480003ce ignored_mask:0\nfanotify sdev:6e mflags:0\n");
  EXPECT_EQ(found, (std::vector<dev_t>{makedev(8, 1), makedev(0, 0x6e)}));
}

TEST(TrackingParts, MomentSurvives) {
  engine::Moment moment;
  moment.mounts = {{"", "ext4", "/", 2049, 2049}, {"srv", "btrfs", "/@srv", 40, 45}};
  moment.written = {{2049, 12}, {45, 1UL << 60}};
  moment.incomplete = {"a/b", "srv"};
  engine::Buffer bytes;
  engine::putMoment(bytes, moment);
  EXPECT_EQ(engine::takeMoment(bytes.view()), moment);
}
