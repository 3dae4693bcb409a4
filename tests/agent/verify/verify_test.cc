// Lists of trees, and what comparing them finds.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "agent/verify/compare_lists.h"
#include "agent/verify/list_reader.h"
#include "agent/verify/tree_list.h"
#include "agent/verify/verify_text.h"
#include "host/fd.h"
#include "host/file.h"
#include "share/engine/wire.h"

namespace {

using agent::TreeComparison;
using agent::TreeDifference;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
namespace fs = std::filesystem;

/// A tree in a temporary folder.
class Tree {
 public:
  Tree() {
    char name[] = "/tmp/qxverify.XXXXXX";
    if (mkdtemp(name) == nullptr) throw std::runtime_error("mkdtemp");
    path_ = name;
  }
  ~Tree() { fs::remove_all(path_); }
  Tree(const Tree&) = delete;
  Tree& operator=(const Tree&) = delete;

  std::string at(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }
  void file(const std::string& name, const std::string& content) {
    fs::create_directories(fs::path(at(name)).parent_path());
    std::ofstream(at(name)) << content;
  }
  /// The copy that a migration would make.
  void copyTo(const Tree& other) const {
    const std::string command = "cp -a " + path_ + "/. " + other.path() + "/";
    if (system(command.c_str()) != 0) throw std::runtime_error(command);
  }

 private:
  std::string path_;
};

/// A list, written by a thread of its own.
class List {
 public:
  explicit List(const std::string& top, std::vector<std::string> excludes = {}) {
    if (pipe2(pipe_, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    writer_ = std::thread([this, top, excludes] {
      agent::listTree(top, agent::rulesFor(excludes), pipe_[1], [] { return false; });
      close(pipe_[1]);
    });
  }
  ~List() {
    writer_.join();
    close(pipe_[0]);
  }
  int fd() const { return pipe_[0]; }

 private:
  int pipe_[2];
  std::thread writer_;
};

TreeComparison compare(const Tree& server, const Tree& container, const std::string& edits = "",
                       agent::Moments moments = {}, std::vector<std::string> excludes = {}) {
  List one(server.path(), excludes), other(container.path(), excludes);
  agent::ListReader first(one.fd(), -1, nullptr, "the server's list");
  agent::ListReader second(other.fd(), -1, nullptr, "the container's list");
  first.clock();
  second.clock();
  return agent::compareLists(first, second, {agent::Edits(edits), moments});
}

std::vector<std::string> found(const TreeComparison& comparison) {
  std::vector<std::string> lines;
  for (const TreeDifference& one : comparison.differences) {
    lines.push_back(one.path + ": " + one.aspect + ": " + one.text +
                    (one.reason.empty() ? "" : " (" + one.reason + ")"));
  }
  return lines;
}

/// Files in folders, with names whose order is easily mistaken.
class Verify : public testing::Test {
 protected:
  void SetUp() override {
    server_.file("a/x", "one");
    server_.file("a.b/y", "two");
    server_.file("a-b", "three");
    server_.file("a/b/c/d", "four");
    server_.file("z", std::string(300000, 'z'));
    ASSERT_EQ(symlink("a/x", server_.at("link").c_str()), 0);
    ASSERT_EQ(mkfifo(server_.at("fifo").c_str(), 0600), 0);
    ASSERT_EQ(mknod(server_.at("null").c_str(), S_IFCHR | 0600, makedev(1, 3)), 0);
    ASSERT_EQ(link(server_.at("z").c_str(), server_.at("a/z2").c_str()), 0);
    server_.copyTo(container_);
  }
  /// The time of `path` stays as it was before the function.
  template <class Function>
  static void quietly(const std::string& path, Function function) {
    struct stat before;
    ASSERT_EQ(lstat(path.c_str(), &before), 0);
    function();
    const timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  }
  Tree server_, container_;
};

TEST_F(Verify, ACopyIsTheSame) {
  const TreeComparison comparison = compare(server_, container_);
  EXPECT_THAT(found(comparison), IsEmpty());
  EXPECT_EQ(comparison.unexpected, 0u);
  EXPECT_EQ(comparison.files, 6u);  // by names
  EXPECT_EQ(comparison.entries, 14u);
  EXPECT_THAT(agent::comparisonText(comparison, false),
              HasSubstr("There are no unexpected differences.\n"));
}

TEST_F(Verify, EveryAspectIsLookedAt) {
  const auto here = [&](const char* name) { return container_.at(name); };
  quietly(here("a/x"), [&] { container_.file("a/x", "ONE"); });
  ASSERT_EQ(chmod(here("a.b").c_str(), 0700), 0);
  ASSERT_EQ(chown(here("a-b").c_str(), 7, 8), 0);
  quietly(here("a/b/c/d"), [&] { container_.file("a/b/c/d", "longer"); });
  quietly(container_.path(), [&] {
    ASSERT_EQ(unlink(here("null").c_str()), 0);
    ASSERT_EQ(mknod(here("null").c_str(), S_IFCHR | 0600, makedev(1, 5)), 0);
  });
  struct stat device;
  ASSERT_EQ(stat(server_.at("null").c_str(), &device), 0);
  const timespec same[2] = {device.st_atim, device.st_mtim};
  ASSERT_EQ(utimensat(AT_FDCWD, here("null").c_str(), same, 0), 0);
  quietly(container_.path(), [&] { ASSERT_EQ(unlink(here("fifo").c_str()), 0); });
  ASSERT_EQ(setxattr(here("z").c_str(), "user.note", "1", 1, 0), 0);
  const timespec other[2] = {{5, 0}, {5, 7}};
  ASSERT_EQ(utimensat(AT_FDCWD, here("a.b/y").c_str(), other, 0), 0);
  quietly(here("a/b"), [&] { container_.file("a/b/new", ""); });
  EXPECT_THAT(found(compare(server_, container_)),
              UnorderedElementsAre(
                  "/a/x: content: other bytes", HasSubstr("/a.b: mode: 0700, not 07"),
                  "/a-b: owner: 7:8, not 0:0", "/a/b/c/d: size: 6, not 4",
                  "/a/b/c/d: content: other bytes", "/null: device: 1:5, not 1:3",
                  "/fifo: missing: a fifo", "/z: attributes: user.note, not none, or other values",
                  "/a/z2: attributes: user.note, not none, or other values",
                  HasSubstr("/a.b/y: time: 5.000000007, not "), "/a/b/new: added: a file"));
}

TEST_F(Verify, TypesAndTargets) {
  const auto here = [&](const char* name) { return container_.at(name); };
  struct stat old;
  ASSERT_EQ(lstat(here("link").c_str(), &old), 0);
  quietly(container_.path(), [&] {
    ASSERT_EQ(unlink(here("link").c_str()), 0);
    ASSERT_EQ(symlink("a/y", here("link").c_str()), 0);
    ASSERT_EQ(unlink(here("a-b").c_str()), 0);
    ASSERT_EQ(mkdir(here("a-b").c_str(), 0755), 0);
  });
  const timespec same[2] = {old.st_atim, old.st_mtim};
  ASSERT_EQ(utimensat(AT_FDCWD, here("link").c_str(), same, AT_SYMLINK_NOFOLLOW), 0);
  EXPECT_THAT(
      found(compare(server_, container_)),
      UnorderedElementsAre("/link: target: a/y, not a/x", "/a-b: type: directory, not file"));
}

TEST_F(Verify, NamesOfOneFile) {
  const auto copyOf = [](const Tree& tree, const char* from, const char* to) {
    ASSERT_EQ(unlink(tree.at(to).c_str()), 0);
    ASSERT_EQ(system(("cp -p " + tree.at(from) + " " + tree.at(to)).c_str()), 0);
  };
  quietly(container_.at("a"), [&] { copyOf(container_, "z", "a/z2"); });
  EXPECT_THAT(found(compare(server_, container_)),
              ElementsAre("/a/z2: links: not the same file as /z"));
  // And the other way round.
  quietly(server_.at("a"), [&] { copyOf(server_, "z", "a/z2"); });
  quietly(container_.at("a"), [&] {
    ASSERT_EQ(unlink(container_.at("a/z2").c_str()), 0);
    ASSERT_EQ(link(container_.at("z").c_str(), container_.at("a/z2").c_str()), 0);
  });
  EXPECT_THAT(found(compare(server_, container_)),
              ElementsAre("/a/z2: links: the same file as /z"));
}

TEST_F(Verify, WhatWasExcludedIsNotLookedAt) {
  server_.file("var/cache/x", "x");
  container_.file("var/cache/y", "y");
  for (const std::string& line : found(compare(server_, container_, "", {}, {"/var"}))) {
    EXPECT_THAT(line, testing::Not(HasSubstr("/var")));
  }
  EXPECT_THAT(found(compare(server_, container_, "", {}, {"/other"})),
              Contains("/var/cache/x: missing: a file"));
  EXPECT_THROW(agent::rulesFor({"- x"}), std::runtime_error);
}

TEST_F(Verify, HolesMakeNoDifferenceToContentAndAreMissed) {
  constexpr off_t kSize = 8 << 20;
  const auto write = [&](const std::string& path, bool sparse) {
    const host::Fd file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    ASSERT_EQ(ftruncate(file.get(), kSize), 0);
    if (!sparse) {
      const std::string zeros(kSize, '\0');
      ASSERT_EQ(pwrite(file.get(), zeros.data(), zeros.size(), 0), kSize);
    }
    const std::string piece(100, 'x');
    ASSERT_EQ(pwrite(file.get(), piece.data(), piece.size(), 5000000), 100);
    const timespec times[2] = {{9, 0}, {9, 0}};
    ASSERT_EQ(futimens(file.get(), times), 0);
  };
  struct stat top;
  ASSERT_EQ(stat(server_.path().c_str(), &top), 0);
  write(server_.at("sparse"), true);
  write(container_.at("sparse"), false);
  const timespec same[2] = {top.st_atim, top.st_mtim};
  for (const Tree* tree : {&server_, &container_}) {
    ASSERT_EQ(utimensat(AT_FDCWD, tree->path().c_str(), same, 0), 0);
  }
  EXPECT_THAT(found(compare(server_, container_)),
              ElementsAre(HasSubstr("/sparse: holes: takes ")));
}

TEST_F(Verify, EditsAreKnown) {
  const std::string edits = "/a/x: rewritten\n/rc/S01x: renamed to K01x\n";
  container_.file("etc/qx-changes", edits);
  container_.file("a/x.qx-orig", "one");
  quietly(container_.at("a/x"), [&] { container_.file("a/x", "ONE"); });
  const TreeComparison comparison = compare(server_, container_, edits);
  EXPECT_EQ(comparison.unexpected, 0u) << agent::comparisonText(comparison, true);
  EXPECT_THAT(found(comparison),
              Contains("/a/x: content: other bytes (adapted to a container: rewritten)"));
  EXPECT_THAT(found(comparison),
              Contains("/a/x.qx-orig: added: a file (adapted to a container: the original)"));
  // Nothing else is.
  container_.file("a.b/y", "TWO");
  EXPECT_GT(compare(server_, container_, edits).unexpected, 0u);
}

TEST_F(Verify, WhatChangedSinceIsExcusedOnItsOwnSideOnly) {
  container_.file("a/x", "ONE");
  const std::int64_t now = time(nullptr);
  EXPECT_EQ(compare(server_, container_, "", {now + 1000, now - 1000}).unexpected, 0u);
  EXPECT_GT(compare(server_, container_, "", {now + 1000, now + 1000}).unexpected, 0u);
  EXPECT_EQ(compare(server_, container_, "", {now - 1000, now + 1000}).unexpected, 0u);
}

TEST_F(Verify, WhatIsGoneOnTheServerIsExcusedByItsFolder) {
  ASSERT_EQ(unlink(server_.at("a/b/c/d").c_str()), 0);
  const agent::Moments moments{time(nullptr) - 1000, agent::Moments::kNever};
  const TreeComparison comparison = compare(server_, container_, "", moments);
  EXPECT_EQ(comparison.unexpected, 0u) << agent::comparisonText(comparison, true);
  EXPECT_THAT(found(comparison),
              Contains("/a/b/c/d: added: a file (changed on the server since it was copied)"));
}

TEST_F(Verify, WhatWasInAFolderThatIsGoneIsExcusedLikeIt) {
  const std::int64_t now = time(nullptr);
  fs::remove_all(server_.at("a/b"));
  EXPECT_EQ(compare(server_, container_, "", {now - 1000, agent::Moments::kNever}).unexpected, 0u);
  EXPECT_GT(compare(server_, container_, "", {now + 1000, agent::Moments::kNever}).unexpected, 1u);
}

/// Bytes that a liar may send.
class ListOfALiar : public testing::Test {
 protected:
  std::string refusal(const std::string& bytes) {
    int pipe[2];
    EXPECT_EQ(pipe2(pipe, O_CLOEXEC), 0);
    const host::Fd from(pipe[0]);
    host::Fd to(pipe[1]);
    EXPECT_TRUE(host::writeAll(to.get(), bytes));
    to.reset();
    agent::ListReader reader(from.get(), -1, nullptr, "the server's list");
    try {
      reader.clock();
      while (reader.next()) {
      }
    } catch (const std::runtime_error& problem) {
      return problem.what();
    }
    return "accepted";
  }
  static std::string entry(const std::string& path, mode_t mode = S_IFREG | 0644) {
    agent::TreeEntry made;
    made.path = path;
    made.mode = mode;
    engine::Buffer buffer;
    agent::putTreeEntry(buffer, made);
    return std::string(buffer.view());
  }
  const std::string clock_ = std::string(8, '\0');
  const std::string end_ = std::string(4, '\0');
};

TEST_F(ListOfALiar, EndsTooSoon) {
  const std::string whole = clock_ + entry("a") + end_;
  for (size_t length = 0; length < whole.size(); ++length) {
    EXPECT_EQ(refusal(whole.substr(0, length)), "the server's list ends too soon") << length;
  }
  EXPECT_EQ(refusal(whole), "accepted");
}

TEST_F(ListOfALiar, IsOutOfOrder) {
  EXPECT_EQ(refusal(clock_ + entry("b") + entry("a") + end_),
            "the server's list is not acceptable: 'a' comes after 'b'");
  EXPECT_EQ(refusal(clock_ + entry("a") + entry("a") + end_),
            "the server's list is not acceptable: 'a' comes after 'a'");
  EXPECT_EQ(refusal(clock_ + entry("a", S_IFDIR | 0755) + entry("b") + entry("a/z") + end_),
            "accepted");
}

TEST_F(ListOfALiar, HasEntriesThatNoTreeHas) {
  EXPECT_THAT(refusal(clock_ + std::string("\xff\xff\xff\x7f", 4)),
              HasSubstr("is not acceptable: an entry of 2147483647 bytes"));
  for (const char* path : {"../x", "/x", "a//b", "a/./b", ".."}) {
    EXPECT_THAT(refusal(clock_ + entry(path) + end_), HasSubstr("is not acceptable: ")) << path;
  }
  std::string wrong = entry("name");
  wrong.pop_back();
  wrong[0] = static_cast<char>(wrong[0] - 1);
  EXPECT_THAT(refusal(clock_ + wrong + end_), HasSubstr("is not acceptable: "));
}

TEST(ListReader, EndsWhenItIsGivenUp) {
  int pipe[2];
  ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
  const host::Fd from(pipe[0]), to(pipe[1]);
  host::Fd stop(open("/dev/null", O_RDONLY | O_CLOEXEC));  // always readable
  agent::ListReader reader(from.get(), stop.get(), nullptr, "the server's list");
  try {
    reader.clock();
    FAIL() << "a clock that nobody sent";
  } catch (const std::runtime_error& problem) {
    EXPECT_STREQ(problem.what(), "the server's list was given up");
  }
}

TEST(ComesBefore, IsTheOrderOfAList) {
  const std::vector<std::string> sorted{"",    "a",     "a-b",     "a.b",   "z",     "a/b",
                                        "a/x", "a/b/c", "a/b/c/d", "a-b/x", "a.b/y", "z/a"};
  for (size_t i = 0; i < sorted.size(); ++i) {
    for (size_t j = 0; j < sorted.size(); ++j) {
      EXPECT_EQ(agent::comesBefore(sorted[i], sorted[j]), i < j) << sorted[i] << " " << sorted[j];
    }
  }
}

TEST(ComparisonText, ShowsNothingThatDrivesATerminal) {
  TreeComparison comparison;
  comparison.unexpected = 1;
  comparison.differences.push_back({"/a\x1b[2J", "target", "b\nContainer 101 is ready.", ""});
  const std::string text = agent::comparisonText(comparison, true);
  EXPECT_EQ(text.find('\x1b'), std::string::npos);
  EXPECT_THAT(text, HasSubstr("/a\\x1b[2J: target: b\\nContainer 101 is ready.\n"));
}

}  // namespace
