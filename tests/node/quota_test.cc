#include "node/quota.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/error.h"
#include "host/file.h"
#include "support/container_101.h"
#include "support/scratch_host.h"

namespace {

using node::Error;
using node::ExitCode;
using node::QuotaExit;
using node::QuotaKind;
using test_support::kArea;
using test_support::kConf;
using test_support::ScratchHost;
using testing::HasSubstr;
using testing::Not;

QuotaExit quota(const std::vector<std::string>& arguments, std::string* output = nullptr) {
  std::string text;
  const QuotaExit code = node::runQuotaCommand(node::parseQuotaCommand(arguments), text);
  if (output != nullptr) *output = text;
  return code;
}

ScratchHost hostWithContainer(const std::string& config = "") {
  ScratchHost host;
  host.file(kConf, config).dir("/var/lib/qx/private/101/fs");
  return host;
}

TEST(QuotaCommand, UnderstandsWhatItsCallersWrite) {
  using Limits = node::QuotaSetLimits;
  const node::QuotaCommand limits = node::parseQuotaCommand(
      {"setlimit2", "101", "-g", "7", "1", "2", "3", "18446744073709551615"});
  EXPECT_EQ(limits.id, 101u);
  EXPECT_EQ(std::get<Limits>(limits.what).kind, QuotaKind::kGroup);
  EXPECT_EQ(std::get<Limits>(limits.what).object, 7u);
  EXPECT_EQ(std::get<Limits>(limits.what).inodeHard, 18446744073709551615u);
  const node::QuotaCommand grace = node::parseQuotaCommand({"setlimit2", "101", "-tu", "5", "6"});
  EXPECT_EQ(std::get<node::QuotaSetGrace>(grace.what).kind, QuotaKind::kUser);
  EXPECT_EQ(std::get<node::QuotaSetGrace>(grace.what).grace.inodes, 6u);
  EXPECT_TRUE(std::get<node::QuotaStat>(node::parseQuotaCommand({"stat", "101", "-t"}).what).table);
}

TEST(QuotaCommand, AnythingElseIsAUsageError) {
  const std::vector<std::vector<std::string>> cases = {
      {},
      {"stat"},
      {"stat", "x"},
      {"stat", "101", "-x"},
      {"stat", "101", "-t", "x"},
      {"setlimit2", "101"},
      {"setlimit2", "101", "-u", "7", "1", "2", "3"},
      {"setlimit2", "101", "-u", "7", "1", "2", "3", "4", "5"},
      {"setlimit2", "101", "-u", "4294967296", "1", "2", "3", "4"},
      {"setlimit2", "101", "-u", "7", "-1", "2", "3", "4"},
      {"setlimit2", "101", "-u", "7", "18446744073709551616", "2", "3", "4"},
      {"setlimit2", "101", "-x", "7", "1", "2", "3", "4"},
      {"setlimit2", "101", "-tx", "1", "2"},
      {"setlimit2", "101", "-tu", "1"},
      {"drop", "101"}};
  for (const auto& arguments : cases) {
    try {
      node::parseQuotaCommand(arguments);
      ADD_FAILURE() << "accepted: " << testing::PrintToString(arguments);
    } catch (const Error& error) {
      EXPECT_EQ(error.code(), ExitCode::kUsage);
    }
  }
}

TEST(Quota, LimitsAreKeptShownAndCleared) {
  hostWithContainer().run([] {
    EXPECT_EQ(quota({"stat", "101"}), QuotaExit::kKept);
    EXPECT_EQ(quota({"setlimit2", "101", "-u", "1000", "100", "200", "10", "20"}), QuotaExit::kOk);
    EXPECT_EQ(quota({"setlimit2", "101", "-g", "50", "0", "0", "0", "5"}), QuotaExit::kOk);
    EXPECT_EQ(quota({"setlimit2", "101", "-tu", "60", "120"}), QuotaExit::kOk);
    std::string text;
    EXPECT_EQ(quota({"stat", "101", "-t"}, &text), QuotaExit::kKept);
    EXPECT_THAT(text, HasSubstr("User/group grace times\n"));
    EXPECT_THAT(text, HasSubstr("\nuser 60 120\ngroup 604800 604800\n"));
    EXPECT_THAT(text, HasSubstr("\nuser 1000 0 100 200 0 0 10 20 0\ngroup 50 0 0 0 0 0 0 5 0\n"));
    EXPECT_EQ(quota({"setlimit2", "101", "-u", "1000", "0", "0", "0", "0"}), QuotaExit::kOk);
    quota({"stat", "101", "-t"}, &text);
    EXPECT_THAT(text, Not(HasSubstr("user 1000")));
    EXPECT_THAT(text, HasSubstr("group 50"));
  });
}

TEST(Quota, ChangesAreAddedToTheTableAndFoldedOnceInAWhile) {
  hostWithContainer().run([] {
    const std::string file = std::string(kArea) + "/.qx-quota";
    quota({"setlimit2", "101", "-u", "1", "1", "1", "1", "1"});
    struct stat before, after;
    ASSERT_EQ(stat(file.c_str(), &before), 0);
    EXPECT_EQ(before.st_mode & 0777, 0600u);
    quota({"setlimit2", "101", "-u", "1", "2", "2", "2", "2"});
    quota({"setlimit2", "101", "-tg", "5", "6"});
    quota({"setlimit2", "101", "-u", "2", "3", "3", "3", "3"});
    quota({"setlimit2", "101", "-u", "2", "0", "0", "0", "0"});
    ASSERT_EQ(stat(file.c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    std::string text;
    quota({"stat", "101", "-t"}, &text);
    EXPECT_THAT(text, HasSubstr("\ngroup 5 6\n"));
    EXPECT_THAT(text, HasSubstr("inode-grace\nuser 1 0 2 2 0 0 2 2 0\n"));
    EXPECT_THAT(text, Not(HasSubstr("user 2")));

    for (int i = 0; i < 4000; ++i) {
      quota({"setlimit2", "101", "-u", "1", "1", "1", "1", std::to_string(i)});
    }
    ASSERT_EQ(stat(file.c_str(), &after), 0);
    EXPECT_LT(after.st_size, 65536);
    quota({"stat", "101", "-t"}, &text);
    EXPECT_THAT(text, HasSubstr("inode-grace\nuser 1 0 1 1 0 0 1 3999 0\n"));
    EXPECT_THAT(text, HasSubstr("\ngroup 5 6\n"));
  });
}

TEST(Quota, ParallelChangesAllArrive) {
  hostWithContainer().run([] {
    constexpr int kProcesses = 24;
    for (int i = 0; i < kProcesses; ++i) {
      if (fork() == 0) {
        try {
          quota({"setlimit2", "101", "-u", std::to_string(i), "1", "1", "1", "1"});
          _exit(0);
        } catch (const Error&) {
          _exit(1);
        }
      }
    }
    for (int i = 0; i < kProcesses; ++i) {
      int status = 1;
      wait(&status);
      EXPECT_EQ(status, 0);
    }
    const std::string text = test_support::readFile(std::string(kArea) + "/.qx-quota");
    EXPECT_EQ(node::parseQuotaTable(text).of(QuotaKind::kUser).objects.size(), size_t{kProcesses});
    EXPECT_EQ(node::listDirectory(kArea).size(), 2u) << "a temporary file was left";
  });
}

TEST(Quota, IsOffOnlyWhenTheConfigurationSaysSo) {
  for (const char* config : {"DISK_QUOTA=no\n", "DISK_QUOTA=\"off\"\n"}) {
    hostWithContainer(config).run([] {
      EXPECT_EQ(quota({"stat", "101"}), QuotaExit::kOff);
      EXPECT_THROW(quota({"setlimit2", "101", "-u", "1", "1", "1", "1", "1"}), Error);
      EXPECT_FALSE(node::exists(std::string(kArea) + "/.qx-quota"));
    });
  }
  hostWithContainer("DISK_QUOTA=yes\n").run([] {
    EXPECT_EQ(quota({"stat", "101"}), QuotaExit::kKept);
  });
}

// Intended: a server without quotas is measured to have no quota ids, and the
// last step of its migration sets grace times on the empty table.
TEST(Quota, MeasuredIdCountOfZeroDoesNotTurnItOff) {
  hostWithContainer("QUOTAUGIDLIMIT=\"0\"\n").run([] {
    EXPECT_EQ(quota({"stat", "101"}), QuotaExit::kKept);
    EXPECT_EQ(quota({"setlimit2", "101", "-tg", "0", "0"}), QuotaExit::kOk);
  });
}

TEST(Quota, MissingContainerAndMalformedTableAreErrors) {
  ScratchHost().run([] { EXPECT_THROW(quota({"stat", "101"}), Error); });
  ScratchHost().file(kConf, "").run([] { EXPECT_THROW(quota({"stat", "101"}), Error); });
  hostWithContainer().file("/var/lib/qx/private/101/.qx-quota", "nonsense\n").run([] {
    try {
      quota({"stat", "101", "-t"});
      FAIL() << "accepted";
    } catch (const Error& error) {
      EXPECT_STREQ(error.what(),
                   "/var/lib/qx/private/101/.qx-quota: line 1: text before the first section");
    }
  });
}

}  // namespace
