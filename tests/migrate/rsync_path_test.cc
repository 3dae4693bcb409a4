#include "migrate/rsync_path.h"

#include <gtest/gtest.h>

#include <cstdlib>

TEST(RsyncPath, IsUnderQxaTmpdirWithoutASeparator) {
  unsetenv("QXA_TMPDIR");
  EXPECT_EQ(P2V::rsyncPath(), "/usr/local/share/qxlinmigrate/rsync");
  setenv("QXA_TMPDIR", "", 1);
  EXPECT_EQ(P2V::rsyncPath(), "/usr/local/share/qxlinmigrate/rsync");
  setenv("QXA_TMPDIR", "/tmp/x", 1);
  EXPECT_EQ(P2V::rsyncPath(), "/tmp/x/usr/local/share/qxlinmigrate/rsync");
  setenv("QXA_TMPDIR", "/tmp/x/", 1);
  EXPECT_EQ(P2V::rsyncPath(), "/tmp/x//usr/local/share/qxlinmigrate/rsync");
  unsetenv("QXA_TMPDIR");
}
