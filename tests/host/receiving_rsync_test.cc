// Which versions of rsync are let near what a server sends.
#include "host/receiving_rsync.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/error.h"
#include "support/scratch_host.h"

namespace {

using test_support::ScratchHost;
using testing::HasSubstr;

std::string versionText(const std::string& number) {
  return "rsync  version " + number + "  protocol version 31\nCopyright (C) …\n";
}

bool accepted(const std::string& number, const std::string& package) {
  return host::unfixedRsync(versionText(number), package).empty();
}

TEST(ReceivingRsync, FixedVersionsAreAccepted) {
  EXPECT_TRUE(accepted("3.4.0", ""));
  EXPECT_TRUE(accepted("3.4.1", "3.4.1+ds1-5"));
  EXPECT_TRUE(accepted("3.10.0", ""));
  EXPECT_TRUE(accepted("4.0.0", ""));
  EXPECT_TRUE(accepted("v3.4.1", ""));
}

TEST(ReceivingRsync, DebiansUpdatesOfOldVersionsAreAccepted) {
  EXPECT_TRUE(accepted("3.2.7", "3.2.7-1+deb12u1"));
  EXPECT_TRUE(accepted("3.2.7", "3.2.7-1+deb12u10"));
  EXPECT_TRUE(accepted("3.2.3", "3.2.3-4+deb11u2"));
}

TEST(ReceivingRsync, VersionsWithoutTheFixesAreRefused) {
  EXPECT_FALSE(accepted("3.2.7", ""));
  EXPECT_FALSE(accepted("3.2.7", "3.2.7-1"));
  EXPECT_FALSE(accepted("3.2.7", "3.2.7-1+deb12u0"));
  EXPECT_FALSE(accepted("3.2.7", "3.2.7-1+deb12u"));
  EXPECT_FALSE(accepted("3.2.3", "3.2.3-4+deb11u1"));
  EXPECT_FALSE(accepted("3.3.0", "3.3.0-1"));
  EXPECT_FALSE(accepted("2.6.9", ""));
  // The package is not what is installed in its place.
  EXPECT_FALSE(accepted("3.1.3", "3.2.7-1+deb12u2"));
  EXPECT_FALSE(accepted("", ""));
  EXPECT_FALSE(accepted("3", ""));
}

TEST(ReceivingRsync, TheTextNamesTheVersionAndWhatIsWrong) {
  EXPECT_EQ(host::unfixedRsync(versionText("3.2.7"), "3.2.7-1"),
            "rsync 3.2.7-1 of this host lacks the mends of CVE-2024-12084 to 12088 and "
            "CVE-2024-12747, by which a server could run programs here");
  EXPECT_THAT(host::unfixedRsync("hello", ""), HasSubstr("does not say which version"));
}

TEST(ReceivingRsync, TheHostsOwnIsAskedAndThePackagesListRead) {
  ScratchHost host;
  host.tool("/usr/local/share/qxlinmigrate/rsync", {.out = versionText("3.2.7")});
  host.file("/var/lib/dpkg/status",
            "Package: rsyslog\nVersion: 9\n\nPackage: rsync\nStatus: install ok installed\n"
            "Version: 3.2.7-1+deb12u2\n\nPackage: other\nVersion: 1\n");
  host.run([] { EXPECT_EQ(host::receivingRsyncProblem({}).text, ""); });
  host.file("/var/lib/dpkg/status", "Package: rsync\nVersion: 3.2.7-1\n");
  host.run([] {
    EXPECT_THAT(host::receivingRsyncProblem({}).text, HasSubstr("lacks the mends"));
    EXPECT_FALSE(host::receivingRsyncProblem({{"OLD_RSYNC", "no"}}).tolerable);
    EXPECT_TRUE(host::receivingRsyncProblem({{"OLD_RSYNC", "yes"}}).tolerable);
    EXPECT_THROW(host::receivingRsyncProblem({{"OLD_RSYNC", "perhaps"}}), host::Error);
  });
}

TEST(ReceivingRsync, NoSettingReplacesAMissingOne) {
  ScratchHost host;
  host.tool("/usr/local/share/qxlinmigrate/rsync",
            {.script = "echo 'rsync: install the package rsync' >&2; exit 14\n"});
  host.run([] {
    const host::RsyncProblem problem = host::receivingRsyncProblem({{"OLD_RSYNC", "yes"}});
    EXPECT_THAT(problem.text, HasSubstr("install the package rsync"));
    EXPECT_FALSE(problem.tolerable);
  });
}

}  // namespace
