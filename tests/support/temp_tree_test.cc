#include "support/temp_tree.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;
using namespace test_support;

TEST(TempTree, OneExpressionMakesDirectoriesFilesLinksAndModes) {
  const TempTree tree({dirAt("a/b", 0750), fileAt("c/d/e", "text\n", 0600), linkAt("f", "c/d/e")});
  struct stat info;
  ASSERT_EQ(stat(tree.path("a/b").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode, S_IFDIR | 0750u);
  ASSERT_EQ(stat(tree.path("c/d/e").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode, S_IFREG | 0600u);
  EXPECT_EQ(fs::read_symlink(tree.path("f")), "c/d/e");
  EXPECT_EQ(readFile(tree.path("f")), "text\n");
}

TEST(TempTree, LeadingSlashIsBelowTheRoot) {
  const TempTree tree({fileAt("/etc/hosts", "here")});
  EXPECT_EQ(readFile(tree.root() + "/etc/hosts"), "here");
}

TEST(TempTree, AddReplacesAFile) {
  TempTree tree({fileAt("x", "long contents")});
  tree.add(fileAt("x", "new"));
  EXPECT_EQ(readFile(tree.path("x")), "new");
}

TEST(TempTree, EverythingIsRemovedAtTheEnd) {
  std::string root;
  {
    const TempTree tree({fileAt("locked/x", "1"), dirAt("locked", 0)});
    root = tree.root();
    EXPECT_TRUE(fs::exists(root));
  }
  EXPECT_FALSE(fs::exists(root));
}

TEST(TempTree, ReadingAMissingFileThrows) {
  EXPECT_THROW(readFile("/nonexistent/file"), std::system_error);
}
