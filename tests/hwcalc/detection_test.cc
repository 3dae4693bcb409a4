// Distribution and resolver settings of a server.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "hwcalc/hw_calc.h"
#include "support/scratch_host.h"

using test_support::ScratchHost;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char BUILT_IN[] = "/usr/local/share/qxlinmigrate/distdetect-common.sh";
constexpr char NOT_DETECTED[] = "0 OS distribution was not detected. It must be manually set.";

struct Detection {
  std::string distribution;
  std::vector<std::string> warnings;
};

Detection detect(const std::list<std::string>& scripts = {}) {
  QXHWCalc calculator;
  calculator.distScripts = scripts;
  std::list<QXA::QXACalculateHWNodeWarning> warnings;
  Detection detection{calculator.getDistribution(warnings), {}};
  for (const auto& warning : warnings) {
    detection.warnings.push_back(std::to_string(warning.code) + " " + warning.message);
  }
  return detection;
}

}  // namespace

TEST(GetDistribution, BuiltInScriptPrintsIt) {
  ScratchHost().tool(BUILT_IN, {.out = "redhat-9\n"}).run([] {
    unsetenv("QXA_TMPDIR");
    const Detection detection = detect();
    EXPECT_EQ(detection.distribution, "redhat-9");
    EXPECT_THAT(detection.warnings, IsEmpty());
  });
}

TEST(GetDistribution, ScriptNeedsNoExecutePermission) {
  ScratchHost().file("/d.sh", "echo debian-12\n", 0644).run([] {
    EXPECT_EQ(detect({"/d.sh"}).distribution, "debian-12");
  });
}

TEST(GetDistribution, MissingScriptsAreNamed) {
  ScratchHost().run([] {
    unsetenv("QXA_TMPDIR");
    const Detection none = detect();
    EXPECT_EQ(none.distribution, "");
    EXPECT_THAT(none.warnings,
                ElementsAre("0 OS distribution detection script "
                            "(/usr/local/share/qxlinmigrate/distdetect-common.sh) was not found. "
                            "The DISTRIBUTION parameter of the CT config must be set manually."));
    EXPECT_THAT(detect({"/a", "/b"}).warnings,
                ElementsAre("0 OS distribution detection script (/a, /b, "
                            "/usr/local/share/qxlinmigrate/distdetect-common.sh) was not found. "
                            "The DISTRIBUTION parameter of the CT config must be set manually."));
  });
}

TEST(GetDistribution, TemporaryDirectoryStandsBeforeTheBuiltInPath) {
  ScratchHost().tool(std::string("/tmp/q") + BUILT_IN, {.out = "suse-9\n"}).run([] {
    setenv("QXA_TMPDIR", "/tmp/q", 1);
    EXPECT_EQ(detect().distribution, "suse-9");
    setenv("QXA_TMPDIR", "", 1);
    EXPECT_THAT(detect().warnings[0], testing::HasSubstr("(/usr/local/share/"));
  });
}

TEST(GetDistribution, OnlyTheSecondScriptExists) {
  ScratchHost host;
  host.tool("/b", {.out = "suse-9.1\n"}).tool(BUILT_IN, {.out = "redhat-9\n"});
  host.run([&] {
    const Detection detection = detect({"/a", "/b"});
    EXPECT_EQ(detection.distribution, "suse-9.1");
    EXPECT_THAT(detection.warnings, IsEmpty());
    EXPECT_THAT(host.calls(), ElementsAre("/b"));
  });
}

TEST(GetDistribution, NextScriptIsTriedAfterAFailure) {
  ScratchHost host;
  host.tool("/a", {.status = 1, .out = "wrong-1\n"}).tool("/b", {.out = "suse-9.1\n"});
  host.run([] {
    const Detection detection = detect({"/a", "/b"});
    EXPECT_EQ(detection.distribution, "suse-9.1");
    EXPECT_THAT(detection.warnings, IsEmpty());
  });
}

TEST(GetDistribution, FailingScriptsGiveAWarning) {
  ScratchHost().tool("/a", {.status = 1, .out = "wrong-1\n"}).run([] {
    const Detection detection = detect({"/a"});
    EXPECT_EQ(detection.distribution, "");
    EXPECT_THAT(detection.warnings, ElementsAre(NOT_DETECTED));
  });
}

TEST(GetDistribution, ScriptThatPrintsNothingGivesAWarning) {
  ScratchHost().tool("/a", {.out = " \n"}).run([] {
    EXPECT_THAT(detect({"/a"}).warnings, ElementsAre(NOT_DETECTED));
  });
}

TEST(GetDistribution, KilledScriptGivesAWarning) {
  ScratchHost().tool("/a", {.script = "echo wrong-1; kill -9 $$"}).run([] {
    EXPECT_THAT(detect({"/a"}).warnings, ElementsAre(NOT_DETECTED));
  });
}

TEST(GetDistribution, ShellThatCannotBeStartedGivesAWarning) {
  ScratchHost().tool("/a", {.out = "suse-9.1\n"}).run([] {
    setenv("PATH", "/nowhere", 1);
    EXPECT_THAT(detect({"/a"}).warnings, ElementsAre(NOT_DETECTED));
  });
}

TEST(GetDistribution, ScriptHasThisProcesssEnvironment) {
  ScratchHost().file("/a", "echo $FLAVOUR-1\n").run([] {
    setenv("FLAVOUR", "mine", 1);
    EXPECT_EQ(detect({"/a"}).distribution, "mine-1");
  });
}

TEST(GetNSAttrs, ReadsTheSystemsFile) {
  ScratchHost host;
  host.file("/etc/resolv.conf",
            "# made by hand\nsearch alpha  beta\nnameserver   10.0.0.1  \nnameserver\n"
            "domain gamma\n");
  host.run([] {
    std::list<QXA::QXACalculateHWNodeWarning> warnings;
    const auto [nameservers, domains] = QXHWCalc().getNSAttrs(warnings);
    EXPECT_THAT(nameservers, ElementsAre("10.0.0.1"));
    EXPECT_THAT(domains, ElementsAre("alpha", "beta"));
    EXPECT_THAT(warnings, IsEmpty());
  });
}

TEST(GetNSAttrs, MissingFileGivesNothingAndNoWarning) {
  ScratchHost().run([] {
    std::list<QXA::QXACalculateHWNodeWarning> warnings;
    const auto [nameservers, domains] = QXHWCalc().getNSAttrs(warnings);
    EXPECT_THAT(nameservers, IsEmpty());
    EXPECT_THAT(domains, IsEmpty());
    EXPECT_THAT(warnings, IsEmpty());
  });
}
