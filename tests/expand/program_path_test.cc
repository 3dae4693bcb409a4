#include "expand/program_path.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/child_test.h"
#include "support/temp_tree.h"

using Expand::get_full_name;
using namespace test_support;

TEST(GetFullName, NameShorterThanTwoCharactersIsEmptyIntended) {
  const TempTree tree({fileAt("bin/x", "", 0755)});
  EXPECT_EQ(get_full_name("x", {"PATH=" + tree.path("bin")}), "");
  EXPECT_EQ(get_full_name("", {"PATH=/bin"}), "");
  EXPECT_EQ(get_full_name("/", {}), "");
  EXPECT_EQ(get_full_name("x", {}), "");
}

TEST(GetFullName, AbsoluteNameIsReturnedWhetherItExistsOrNot) {
  EXPECT_EQ(get_full_name("/nonexistent/tool", {"PATH=/bin"}), "/nonexistent/tool");
}

TEST(GetFullName, WithoutPathTheNameIsUnchanged) {
  EXPECT_EQ(get_full_name("tool", {}), "tool");
  EXPECT_EQ(get_full_name("tool", {"HOME=/", "MYPATH=/bin", "PATH"}), "tool");
}

TEST(GetFullName, FirstDirectoryWithTheNameWins) {
  const TempTree tree({dirAt("1"), fileAt("2/tool", "", 0755), fileAt("3/tool", "", 0755)});
  const std::string root = tree.root();
  EXPECT_EQ(get_full_name("tool", {"PATH=" + root + "/1:" + root + "/2:" + root + "/3"}),
            root + "/2/tool");
  EXPECT_EQ(get_full_name("tool", {"PATH=" + root + "/3:" + root + "/2"}), root + "/3/tool");
}

TEST(GetFullName, FirstPathEntryOfTheEnvironmentCounts) {
  const TempTree tree({fileAt("1/tool", ""), fileAt("2/tool", "")});
  EXPECT_EQ(get_full_name("tool", {"A=b", "PATH=" + tree.path("1"), "PATH=" + tree.path("2")}),
            tree.path("1/tool"));
}

TEST(GetFullName, NameWithASlashInsideIsSearchedForToo) {
  const TempTree tree({fileAt("1/sub/tool", "")});
  EXPECT_EQ(get_full_name("sub/tool", {"PATH=" + tree.path("1")}), tree.path("1/sub/tool"));
}

TEST(GetFullName, DirectoryIsNoProgram) {
  const TempTree tree({dirAt("1/tool"), fileAt("2/tool", "")});
  EXPECT_EQ(get_full_name("tool", {"PATH=" + tree.path("1") + ":" + tree.path("2")}),
            tree.path("2/tool"));
}

TEST(GetFullName, NameFoundNowhereIsEmpty) {
  const TempTree tree;
  EXPECT_EQ(get_full_name("tool", {"PATH=" + tree.root()}), "");
  EXPECT_EQ(get_full_name("tool", {"PATH="}), "");
}

TEST(GetFullName, RelativeDirectoryIsTriedFromTheWorkingDirectory) {
  const TempTree tree({fileAt("1/tool", "")});
  runInChild([&] {
    ASSERT_EQ(chdir(tree.root().c_str()), 0);
    EXPECT_EQ(get_full_name("tool", {"PATH=1"}), "1/tool");
  });
}
