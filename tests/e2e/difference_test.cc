#include "e2e/difference.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <string>

#include "support/temp_tree.h"

namespace {

using test_support::dirAt;
using test_support::fileAt;
using test_support::linkAt;
using test_support::TempTree;
using treediff::Comparison;
using treediff::Expectations;
using treediff::Report;

constexpr timespec aTime = {1600000000, 123456789};

void setTime(const std::string& path, const timespec& when) {
  const timespec times[2] = {when, when};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

// Two trees with one content and one time.
class Difference : public testing::Test {
 protected:
  Difference() {
    for (TempTree* tree : {&source_, &copy_}) {
      tree->add(dirAt("dir"));
      tree->add(fileAt("dir/file", "contents", 0644));
      tree->add(linkAt("dir/link", "file"));
      EXPECT_EQ(mkfifo(tree->path("dir/pipe").c_str(), 0600), 0);
      settle(*tree);
    }
  }

  void settle(TempTree& tree) {
    for (const char* name : {"dir/file", "dir/link", "dir/pipe", "dir", ""}) {
      setTime(tree.path(name), aTime);
    }
  }

  // "PATH ASPECT;" for every difference.
  std::string found() {
    settle(source_);
    settle(copy_);
    return compared();
  }

  std::string compared() {
    Comparison comparison(source_.root(), copy_.root(), expectations_);
    report_ = comparison.run();
    std::string text;
    for (const treediff::Difference& item : report_.differences) {
      text += item.path + " " + item.aspect + ";";
    }
    return text;
  }

  TempTree source_;
  TempTree copy_;
  Expectations expectations_;
  Report report_;
};

TEST_F(Difference, EqualTreesHaveNone) {
  EXPECT_EQ(found(), "");
  EXPECT_EQ(report_.entries, 5U);
  EXPECT_EQ(report_.files, 1U);
  EXPECT_EQ(report_.bytes, 8U);
}

TEST_F(Difference, AnotherModeIsReported) {
  ASSERT_EQ(chmod(copy_.path("dir/file").c_str(), 04644), 0);
  EXPECT_EQ(found(), "/dir/file mode;");
}

TEST_F(Difference, AnotherOwnerIsReported) {
  if (geteuid() != 0) GTEST_SKIP() << "SKIPPED: only root can give files away";
  ASSERT_EQ(lchown(copy_.path("dir/link").c_str(), 12, 34), 0);
  EXPECT_EQ(found(), "/dir/link owner;");
}

TEST_F(Difference, OtherBytesOfTheSameLengthAreReported) {
  copy_.add(fileAt("dir/file", "CONTENTS", 0644));
  EXPECT_EQ(found(), "/dir/file content;");
}

TEST_F(Difference, AnotherLengthIsReportedAsSize) {
  copy_.add(fileAt("dir/file", "content", 0644));
  EXPECT_EQ(found(), "/dir/file size;");
}

TEST_F(Difference, ANanosecondIsReported) {
  setTime(copy_.path("dir/link"), {aTime.tv_sec, aTime.tv_nsec + 1});
  EXPECT_EQ(compared(), "/dir/link time;");
}

TEST_F(Difference, ALinkToAnotherPlaceIsReported) {
  ASSERT_EQ(unlink(copy_.path("dir/link").c_str()), 0);
  copy_.add(linkAt("dir/link", "elsewhere"));
  EXPECT_EQ(found(), "/dir/link target;");
}

TEST_F(Difference, AnotherTypeIsReportedAlone) {
  ASSERT_EQ(unlink(copy_.path("dir/pipe").c_str()), 0);
  copy_.add(dirAt("dir/pipe"));
  EXPECT_EQ(found(), "/dir/pipe type;");
}

TEST_F(Difference, WhatOnlyOneTreeHasIsReportedOnceForADirectory) {
  source_.add(fileAt("gone/below", "x"));
  copy_.add(fileAt("new", "x"));
  EXPECT_EQ(found(), "/gone missing;/new added;");
}

TEST_F(Difference, ABrokenHardLinkIsReported) {
  ASSERT_EQ(link(source_.path("dir/file").c_str(), source_.path("dir/second").c_str()), 0);
  copy_.add(fileAt("dir/second", "contents", 0644));
  setTime(copy_.path("dir/second"), aTime);
  EXPECT_EQ(found(), "/dir/second links;");
}

TEST_F(Difference, KeptHardLinksAreNone) {
  for (TempTree* tree : {&source_, &copy_}) {
    ASSERT_EQ(link(tree->path("dir/file").c_str(), tree->path("dir/second").c_str()), 0);
  }
  EXPECT_EQ(found(), "");
}

TEST_F(Difference, AMissingAttributeIsReported) {
  ASSERT_EQ(setxattr(source_.path("dir/file").c_str(), "user.colour", "red", 3, 0), 0);
  EXPECT_EQ(found(), "/dir/file xattrs;");
}

TEST_F(Difference, AFilledHoleIsReported) {
  constexpr off_t size = 1 << 20;
  source_.add(fileAt("dir/file", "", 0644));
  ASSERT_EQ(truncate(source_.path("dir/file").c_str(), size), 0);
  copy_.add(fileAt("dir/file", std::string(size, '\0'), 0644));
  EXPECT_EQ(found(), "/dir/file holes;");
}

TEST_F(Difference, ExcludedPathsAreNotReadAndMustNotBeCopied) {
  expectations_.add("/dir/* excluded not to be copied\n");
  for (const char* name : {"dir/link", "dir/pipe"}) {
    ASSERT_EQ(unlink(copy_.path(name).c_str()), 0);
  }
  setTime(copy_.path("dir"), aTime);
  EXPECT_EQ(compared(), "/dir/file added;");
  EXPECT_EQ(report_.unexpected(), 1U);
}

TEST_F(Difference, ExpectedOnesAreCountedApart) {
  expectations_.add("/dir/file content,time it changes all the time\n");
  copy_.add(fileAt("dir/file", "CONTENTS", 0600));
  EXPECT_EQ(found(), "/dir/file mode;/dir/file content;");
  EXPECT_EQ(report_.unexpected(), 1U);
}

TEST_F(Difference, NamesWithAnyBytesAreComparedAndPrintedSafely) {
  const std::string name = "dir/\n\xff;rm";
  source_.add(fileAt(name, "x"));
  EXPECT_EQ(found(), "/dir/\n\xff;rm missing;");
  EXPECT_EQ(treediff::printable("/" + name), "/dir/\\x0a\\xff;rm");
}

}  // namespace
