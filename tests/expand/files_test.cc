#include "expand/files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "support/child_test.h"
#include "support/failing_call.h"
#include "support/temp_tree.h"

using namespace Expand;
using namespace test_support;

TEST(GetFile, WholeFileIsRead) {
  std::string data;
  for (int i = 0; i < 200000; ++i) data += static_cast<char>(i % 251);
  const TempTree tree({fileAt("f", data)});
  std::string out = "earlier";
  EXPECT_EQ(get_file(tree.path("f"), out), 0);
  EXPECT_EQ(out, data);
}

TEST(GetFile, SizesAroundTheChunk) {
  for (const size_t size : {0u, 1u, 65535u, 65536u, 65537u, 131072u}) {
    const TempTree tree({fileAt("f", std::string(size, 'x'))});
    std::string out = "earlier";
    EXPECT_EQ(get_file(tree.path("f"), out), 0);
    EXPECT_EQ(out.size(), size);
  }
}

TEST(GetFile, FileWithoutASizeIsRead) {
  std::string out;
  EXPECT_EQ(get_file("/proc/self/status", out), 0);
  EXPECT_NE(out.find("Name:"), std::string::npos);
}

TEST(GetFile, MissingFileGivesErrnoAndLeavesTheText) {
  std::string out = "earlier";
  EXPECT_EQ(get_file("/nonexistent/file", out), ENOENT);
  EXPECT_EQ(out, "earlier");
}

TEST(GetFile, FailingReadGivesErrnoAndEmptiesTheText) {
  const TempTree tree;
  std::string out = "earlier";
  EXPECT_EQ(get_file(tree.root(), out), EISDIR);
  EXPECT_EQ(out, "");
}

TEST(PutFile, FileIsMadeWithContentsAndMode) {
  const TempTree tree;
  std::string data(200000, 'x');
  data[100000] = '\0';
  EXPECT_EQ(put_file(tree.path("f"), data, O_CREAT | O_EXCL, 0640), 0);
  EXPECT_EQ(readFile(tree.path("f")), data);
  struct stat info;
  ASSERT_EQ(stat(tree.path("f").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0640u);
}

TEST(PutFile, FlagsDecideAboutEarlierContents) {
  const TempTree tree({fileAt("f", "0123456789")});
  EXPECT_EQ(put_file(tree.path("f"), "ab", 0, 0), 0);
  EXPECT_EQ(readFile(tree.path("f")), "ab23456789");
  EXPECT_EQ(put_file(tree.path("f"), "!", O_APPEND, 0), 0);
  EXPECT_EQ(readFile(tree.path("f")), "ab23456789!");
  EXPECT_EQ(put_file(tree.path("f"), "z", O_TRUNC, 0), 0);
  EXPECT_EQ(readFile(tree.path("f")), "z");
}

TEST(PutFile, FailingOpenGivesErrno) {
  const TempTree tree({fileAt("f", "")});
  EXPECT_EQ(put_file(tree.path("missing"), "x", 0, 0), ENOENT);
  EXPECT_EQ(put_file(tree.path("f"), "x", O_CREAT | O_EXCL, 0600), EEXIST);
}

TEST(PutFile, FailingWriteGivesErrno) { EXPECT_EQ(put_file("/dev/full", "x", 0, 0), ENOSPC); }

TEST(PutFile, FailingCloseGivesErrno) {
  runInChild([] {
    const int next = dup(STDERR_FILENO);
    close(next);
    failSystemCall(SYS_close, EIO, CallArgument{0, static_cast<std::uint32_t>(next)});
    EXPECT_EQ(put_file("/dev/null", "x", 0, 0), EIO);
  });
}

TEST(GetFile, ChunkIs65536Bytes) {
  const TempTree tree({fileAt("f", std::string(65537, 'x'))});
  const std::string path = tree.path("f");
  runInChild([&] {
    failSystemCall(SYS_read, EIO, CallArgument{2, 65536});
    std::string text;
    EXPECT_EQ(get_file(path, text), EIO);
  });
}

TEST(PutFile, ChunkIsAtMost65536Bytes) {
  const TempTree tree;
  const std::string path = tree.path("f");
  runInChild([&] {
    failSystemCall(SYS_write, EIO, CallArgument{2, 65536});
    EXPECT_EQ(put_file(path, std::string(65535, 'x'), O_CREAT, 0644), 0);
    EXPECT_EQ(put_file(path, std::string(65536, 'x'), O_CREAT, 0644), EIO);
    EXPECT_EQ(put_file(path, std::string(65537, 'x'), O_CREAT, 0644), EIO);
  });
}
