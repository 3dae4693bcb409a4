#include "host/product.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

namespace {

class Product : public testing::Test {
 protected:
  void SetUp() override { unsetenv("QXA_TMPDIR"); }
  void TearDown() override { unsetenv("QXA_TMPDIR"); }
};

TEST_F(Product, AnAgentThatWasBroughtHasAFolder) {
  setenv("QXA_TMPDIR", "/var/qxagent.tmp", 1);
  EXPECT_EQ(host::agentFolder(), "/var/qxagent.tmp");
  // What brought it has said where its files are.
  host::offerProductFiles();
  EXPECT_STREQ(getenv("QXA_TMPDIR"), "/var/qxagent.tmp");
}

TEST_F(Product, AnInstalledOneWritesNowhere) {
  EXPECT_EQ(host::agentFolder(), "");
  host::offerProductFiles();
  EXPECT_EQ(host::agentFolder(), "");
}

TEST_F(Product, ThePluginFindsTheFilesOfThisInstallation) {
  host::offerProductFiles();
  const char* const prefix = getenv("QXA_TMPDIR");
  EXPECT_EQ(std::string(prefix == nullptr ? "" : prefix) + "/usr/local/share/qxlinmigrate",
            host::productFolder());
  EXPECT_EQ(host::rsyncProgram(), host::productFolder() + "/rsync");
  EXPECT_THAT(host::productVersion(), testing::MatchesRegex("[0-9]+\\.[0-9]+\\.[0-9]+"));
}

}  // namespace
