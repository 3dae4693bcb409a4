// What a sender does where it cannot read or must do without, and what it costs.
#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host/io_priority.h"
#include "share/engine/beneath.h"
#include "share_tests/engine/random_tree.h"
#include "share_tests/need_root.h"
#include "share_tests/transfer.h"
#include "share_tests/tree_picture.h"
#include "support/child_test.h"
#include "support/failing_call.h"
#include "support/temp_tree.h"

using test_support::dirAt;
using test_support::fileAt;
using test_support::linkAt;
using test_support::readFile;
using test_support::TempTree;
using testing::HasSubstr;

namespace {

namespace fs = std::filesystem;

class EngineSender : public testing::Test {
 protected:
  EngineSender() {
    ::setenv("QX_RSYNC_ENGINE", "own", 1);
    ::setenv("QXA_TMPDIR", tree_.path("agent").c_str(), 1);
    ::setenv("QX_RSYNC_TRACK", "0", 1);
  }
  ~EngineSender() override { ::unsetenv("QX_RSYNC_TRACK"); }

  void expectNamedAndPartial(const std::string& problem) {
    Transfer run(from_ + "/", to_);
    run.useServer(rsyncRunBy(kMayNotReadEverything, tree_.path("server")));
    run.start(pipeChannel());
    run.expectBothEndWith(23);
    EXPECT_THAT(run.client().err(), HasSubstr(problem));
    EXPECT_THAT(run.server().err(), HasSubstr(problem));
  }
  std::string at(const std::string& name) const { return from_ + "/" + name; }
  std::string copyOf(const std::string& name) const { return to_ + "/" + name; }

  NoProcessLeftBehind processes_;
  TempTree tree_{dirAt("from"), dirAt("to"), dirAt("agent")};
  const std::string from_ = tree_.path("from");
  const std::string to_ = tree_.path("to");
};

}  // namespace

TEST_F(EngineSender, DirectoryThatCannotBeOpenedProtectsOnlyItself) {
  NEED_ROOT();
  tree_.add(fileAt("from/closed/new", "x"));
  tree_.add(fileAt("from/open/new", "x"));
  tree_.add(fileAt("to/closed/old", "kept"));
  tree_.add(fileAt("to/closed/d/old", "kept"));
  tree_.add(fileAt("to/open/old", "removed"));
  tree_.add(fileAt("to/old", "removed"));
  ASSERT_EQ(::chmod(at("closed").c_str(), 0), 0);
  expectNamedAndPartial("'/closed': cannot open the directory: Permission denied");
  EXPECT_EQ(readFile(copyOf("closed/old")), "kept");
  EXPECT_EQ(readFile(copyOf("closed/d/old")), "kept");
  EXPECT_EQ(readFile(copyOf("open/new")), "x");
  EXPECT_FALSE(fs::exists(copyOf("open/old")));
  EXPECT_FALSE(fs::exists(copyOf("old")));
}

TEST_F(EngineSender, DirectoryThatCanNoLongerBeOpenedIsLeftAsItWas) {
  NEED_ROOT();
  tree_.add(fileAt("from/closed/file", "first"));
  tree_.add(fileAt("from/open/file", "first"));
  transfer(from_ + "/", to_);
  tree_.add(fileAt("from/closed/file", "second"));
  tree_.add(fileAt("from/open/file", "second"));
  ASSERT_EQ(::chmod(at("closed").c_str(), 0), 0);
  expectNamedAndPartial("'/closed': cannot open the directory: Permission denied");
  EXPECT_EQ(readFile(copyOf("closed/file")), "first");
  EXPECT_EQ(readFile(copyOf("open/file")), "second");
  // And when it can be opened again, the copy is what it should be.
  ASSERT_EQ(::chmod(at("closed").c_str(), 0755), 0);
  transfer(from_ + "/", to_);
  EXPECT_EQ(differences(to_, from_), "");
}

// Part of a directory is not to be taken for all of it.
TEST_F(EngineSender, NothingIsRemovedWhereTheListingFails) {
  tree_.add(fileAt("from/file", "x"));
  tree_.add(fileAt("to/old", "kept"));
  Transfer run(from_ + "/", to_);
  const Channel channel = pipeChannel();
  ProgramRun client({builtRsync(), "-ESHa", "--numeric-ids", "--delete", "--fdin",
                     std::to_string(channel.client.in.get()), "--fdout",
                     std::to_string(channel.client.out.get()), "0.0.0.0:/", to_});
  client.inherit(channel.client.in.get());
  client.inherit(channel.client.out.get());
  client.start();
  test_support::runInChild([&] {
    test_support::failSystemCall(SYS_getdents64, EIO);
    ProgramRun server({builtRsync(), "--server", "--sender", "-ESHa", "--numeric-ids", "--delete",
                       ".", from_ + "/"});
    server.setInput(channel.server.in.get());
    server.setOutput(channel.server.out.get());
    server.start();
    EXPECT_EQ(server.exitStatus(), 23) << server.err();
  });
  EXPECT_EQ(client.exitStatus(), 23);
  EXPECT_THAT(client.err(), HasSubstr("'/': cannot read the directory: Input/output error"));
  EXPECT_EQ(readFile(copyOf("old")), "kept");
}

// Before Linux 5.6, and where a filter of system calls forbids openat2.
TEST_F(EngineSender, CopiesAreTheSameWithoutOpenat2) {
  NEED_ROOT();
  for (const int error : {ENOSYS, EPERM}) {
    test_support::runInChild([&] {
      test_support::failSystemCall(SYS_openat2, error);
      RandomTree source(from_, 7);
      source.grow(60);
      for (int pass = 0; pass < 2; ++pass) {
        transfer(from_ + "/", to_);
        EXPECT_EQ(differences(to_, from_), "") << "pass " << pass;
        source.mutate(25);
      }
    });
  }
}

namespace {

std::string found(const engine::Fd& opened, const std::string& base) {
  if (!opened) return engine::saysMissing(errno) ? "missing" : "refused";
  const std::string path = engine::pathOf(opened.get()).value_or("?");
  return path.starts_with(base) ? path.substr(base.size()) : path;
}

}  // namespace

TEST_F(EngineSender, NothingOutsideIsOpenedWithoutOpenat2Either) {
  tree_.add(fileAt("outside/d/file", "x"));
  tree_.add(dirAt("from/d/e/f"));
  tree_.add(linkAt("from/way", "../outside"));
  tree_.add(linkAt("from/d/up", ".."));
  tree_.add(linkAt("from/self", "d"));
  const std::vector<std::pair<std::string, std::string>> expected = {{"", ""},
                                                                     {"d", "/d"},
                                                                     {"d/e/f", "/d/e/f"},
                                                                     {"none", "missing"},
                                                                     {"way", "missing"},
                                                                     {"way/d", "missing"},
                                                                     {"d/up/d", "missing"},
                                                                     {"self", "missing"},
                                                                     {"self/e", "missing"}};
  for (const bool without : {false, true}) {
    test_support::runInChild([&] {
      if (without) test_support::failSystemCall(SYS_openat2, ENOSYS);
      const engine::Tree tree(from_);
      for (const auto& [path, place] : expected)
        EXPECT_EQ(found(tree.openDirectory(path), from_), place) << path << without;
      for (const char* path : {"..", "d/../..", "../outside", "/etc"})
        EXPECT_EQ(found(tree.openDirectory(path), from_), "refused") << path << without;
      // What is in the way is no directory, and is replaced.
      EXPECT_EQ(found(tree.ensureDirectory("way/d"), from_), "/way/d") << without;
    });
    EXPECT_TRUE(fs::is_directory(fs::symlink_status(at("way"))));
    EXPECT_TRUE(fs::exists(tree_.path("outside/d/file")));
    fs::remove_all(at("way"));
    tree_.add(linkAt("from/way", "../outside"));
  }
}

TEST_F(EngineSender, DisksServeEverybodyElseFirstUnasked) {
  std::ofstream(at("large")) << noise(8 << 20);
  ::setenv("QX_RSYNC_BWLIMIT", "2000", 1);
  Transfer run(from_ + "/", to_);
  run.start(pipeChannel());
  const std::string tasks = "/proc/" + std::to_string(run.server().pid()) + "/task";
  // Its first thread, the two that listen and tell, and at least two lanes.
  std::vector<long> priorities;
  for (int i = 0; i < 500 && priorities.size() < 5; ++i) {
    ::usleep(10000);
    priorities.clear();
    for (const auto& task : fs::directory_iterator(tasks))
      priorities.push_back(::syscall(SYS_ioprio_get, host::kIoPriorityOfProcess,
                                     std::stoi(task.path().filename().string())));
  }
  EXPECT_GE(priorities.size(), 5U);
  for (const long priority : priorities)
    EXPECT_EQ(priority, host::ioPriority(host::kIoClassBestEffort, 7));
  ::unsetenv("QX_RSYNC_BWLIMIT");
  run.expectBothEndWith(0);
}

TEST_F(EngineSender, ManifestTakesAtMost120BytesAnEntry) {
  constexpr size_t kMost = 120;
  size_t entries = 1;  // the top
  for (int d = 0; d < 50; ++d) {
    const std::string directory = "usr/share/package-" + std::to_string(d);
    for (int f = 0; f < 40; ++f)
      tree_.add(fileAt("from/" + directory + "/module_number_" + std::to_string(f) + ".conf",
                       "contents " + std::to_string(f)));
  }
  entries += static_cast<size_t>(
      std::distance(fs::recursive_directory_iterator(from_), fs::recursive_directory_iterator()));
  EXPECT_GT(entries, 2000U);
  transfer(from_ + "/", to_);
  const size_t size = fs::file_size(tree_.path("agent/engine/manifest"));
  RecordProperty("bytes_per_entry", std::to_string(size / entries));
  EXPECT_LE(size, kMost * entries) << static_cast<double>(size) / static_cast<double>(entries);
}
