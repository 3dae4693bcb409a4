#include "migrate/dist_script.h"

#include "workers.h"

using namespace test_support;
using P2V::findDistScript;

namespace {

constexpr char kDirectory[] = "/etc/sysconfig/qx-scripts/dists/";
constexpr char kScript[] = "/etc/sysconfig/qx-scripts/dists/scripts/post.sh";

std::string find(const std::string& name, const std::string& version) {
  return findDistScript(QXA::QXADistribution{name, version}, "POST_MIGRATE");
}

ScratchHost hostWith(const std::string& file, const std::string& contents) {
  ScratchHost host;
  host.file(kDirectory + file, contents);
  return host;
}

const char kGood[] = "POST_MIGRATE=post.sh\n";

}  // namespace

TEST(DistributionText, IsTheNameWithItsVersion) {
  EXPECT_EQ(P2V::distributionText(std::nullopt), "");
  EXPECT_EQ(P2V::distributionText(QXA::QXADistribution{"debian", ""}), "debian");
  EXPECT_EQ(P2V::distributionText(QXA::QXADistribution{"debian", "12"}), "debian-12");
  EXPECT_EQ(P2V::distributionText(QXA::QXADistribution{".debian", "12"}), ".debian-12");
}

TEST(DistScript, VersionedFileNamesTheScript) {
  ScratchHost host = hostWith("debian-12.conf", kGood);
  host.file(std::string(kDirectory) + "debian.conf", "POST_MIGRATE=other.sh\n");
  host.run([] { EXPECT_EQ(find("debian", "12"), kScript); });
}

TEST(DistScript, FallsBackToTheUnversionedFile) {
  hostWith("debian.conf", kGood).run([] {
    EXPECT_EQ(find("debian", "12"), kScript);
    EXPECT_EQ(find("debian", ""), kScript);
    EXPECT_EQ(find("redhat", "9"), "");
    EXPECT_EQ(find("redhat", ""), "");
  });
}

TEST(DistScript, VersionlessDistributionDoesNotFindAVersionedFile) {
  hostWith("debian-12.conf", kGood).run([] { EXPECT_EQ(find("debian", ""), ""); });
}

TEST(DistScript, LeadingDotIsNotPartOfTheFilesName) {
  hostWith("debian-12.conf", kGood).run([] { EXPECT_EQ(find(".debian", "12"), kScript); });
  hostWith("debian.conf", kGood).run([] { EXPECT_EQ(find(".debian", "12"), kScript); });
}

TEST(DistScript, WithoutADistributionThereIsNone) {
  hostWith(".conf", kGood).run([] { EXPECT_EQ(findDistScript(std::nullopt, "POST_MIGRATE"), ""); });
}

TEST(DistScript, KeyIsLookedUpInTheGlobalSection) {
  hostWith("debian-12.conf", "[GLOBAL]\nPOST_MIGRATE=post.sh\nOTHER=other.sh\n").run([] {
    EXPECT_EQ(find("debian", "12"), kScript);
    EXPECT_EQ(findDistScript(QXA::QXADistribution{"debian", "12"}, "OTHER"),
              "/etc/sysconfig/qx-scripts/dists/scripts/other.sh");
  });
  hostWith("debian-12.conf", "[other]\nPOST_MIGRATE=post.sh\n").run([] {
    EXPECT_EQ(find("debian", "12"), "");
  });
}

TEST(DistScript, MissingOrEmptyKeyIsNone) {
  hostWith("debian-12.conf", "").run([] { EXPECT_EQ(find("debian", "12"), ""); });
  hostWith("debian-12.conf", "POST_MIGRATE=\n").run([] { EXPECT_EQ(find("debian", "12"), ""); });
}

TEST(DistScript, MalformedFileIsNone) {
  hostWith("debian-12.conf", "POST_MIGRATE=post.sh\n[a b]\n").run([] {
    EXPECT_EQ(find("debian", "12"), "");
  });
}

TEST(DistScript, ExistenceOfTheScriptIsNotLookedAt) {
  hostWith("debian.conf", kGood).run([] {
    EXPECT_EQ(find("debian", ""), kScript);
    EXPECT_NE(access(kScript, F_OK), 0);
  });
}
