#include "host/file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>

#include "host/error.h"
#include "host/text.h"
#include "support/temp_tree.h"

namespace {

using test_support::fileAt;
using test_support::linkAt;
using test_support::TempTree;
using testing::ElementsAre;

TEST(ReplaceFile, GivesContentAndModeAndLeavesNothingElse) {
  TempTree tree({fileAt("f", "old", 0600)});
  host::replaceFile(tree.path("f"), "new", 0640);
  EXPECT_EQ(test_support::readFile(tree.path("f")), "new");
  struct stat st;
  ASSERT_EQ(stat(tree.path("f").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  EXPECT_THAT(host::listDirectory(tree.root()), ElementsAre("f"));
}

TEST(ReplaceFile, FailureNamesTheFileAndLeavesNothing) {
  TempTree tree({fileAt("d/x", "")});
  EXPECT_THROW(host::replaceFile(tree.path("d"), "text", 0600), host::Error);
  EXPECT_THAT(host::listDirectory(tree.root()), ElementsAre("d"));
  EXPECT_THROW(host::replaceFile(tree.path("none/f"), "text", 0600), host::Error);
}

TEST(OpenInRoot, AbsoluteAndClimbingLinksStayInside) {
  TempTree tree({fileAt("root/etc/name", "inside"), fileAt("etc/name", "outside"),
                 linkAt("root/absolute", "/etc/name"), linkAt("root/climbing", "../../etc/name")});
  const host::Fd root(open(tree.path("root").c_str(), O_PATH | O_DIRECTORY));
  for (const char* path : {"/etc/name", "absolute", "climbing", "../etc/name"}) {
    const host::Fd fd = host::openInRoot(root.get(), path, O_RDONLY);
    ASSERT_TRUE(fd) << path;
    char text[16];
    const ssize_t length = read(fd.get(), text, sizeof text);
    EXPECT_EQ(std::string(text, static_cast<size_t>(length)), "inside") << path;
  }
}

TEST(ReadFileInRoot, GivesTheStartOfARegularFile) {
  TempTree tree({fileAt("root/etc/name", "inside"), fileAt("etc/name", "outside"),
                 linkAt("root/link", "/etc/name")});
  const host::Fd root(open(tree.path("root").c_str(), O_PATH | O_DIRECTORY));
  EXPECT_EQ(host::readFileInRoot(root.get(), "link", 100), "inside");
  EXPECT_EQ(host::readFileInRoot(root.get(), "link", 2), "in");
  EXPECT_EQ(host::readFileInRoot(root.get(), "none", 100), "");
  EXPECT_EQ(host::readFileInRoot(root.get(), "etc", 100), "");
}

// To open some devices is to do something with them.
TEST(ReadFileInRoot, WhatIsNoRegularFileIsNotOpened) {
  TempTree tree({linkAt("link", "fifo")});
  const std::string fifo = tree.path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const host::Fd watch(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  ASSERT_GE(inotify_add_watch(watch.get(), fifo.c_str(), IN_OPEN), 0);
  const host::Fd root(open(tree.root().c_str(), O_PATH | O_DIRECTORY));
  EXPECT_EQ(host::readFileInRoot(root.get(), "link", 100), "");
  char event[sizeof(inotify_event) + NAME_MAX + 1];
  EXPECT_LT(read(watch.get(), event, sizeof event), 0);
  // As it would be seen.
  const host::Fd opened(open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  EXPECT_GT(read(watch.get(), event, sizeof event), 0);
}

TEST(MakeDirectories, MakesWhatIsMissingAndRefusesFilesOnTheWay) {
  TempTree tree({fileAt("file", "")});
  host::makeDirectories(tree.path("a/b/c"));
  host::makeDirectories(tree.path("a/b/c"));
  EXPECT_TRUE(host::isDirectory(tree.path("a/b/c")));
  EXPECT_THROW(host::makeDirectories(tree.path("file/x")), host::Error);
}

TEST(ParseDecimal, TakesDigitsOnly) {
  EXPECT_EQ(host::parseDecimal("0"), 0u);
  EXPECT_EQ(host::parseDecimal("18446744073709551615"), 18446744073709551615u);
  for (const char* text : {"", "-1", "+1", " 1", "1 ", "0x1", "18446744073709551616"}) {
    EXPECT_FALSE(host::parseDecimal(text)) << text;
  }
}

TEST(SplitLines, LastLineNeedsNoEnd) {
  EXPECT_THAT(host::splitLines("a\n\nb"), ElementsAre("a", "", "b"));
  EXPECT_THAT(host::splitLines("a\n"), ElementsAre("a"));
}

}  // namespace
