#include "host/distributions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "expand/conf_parser.h"
#include "host/error.h"
#include "support/scratch_host.h"
#include "support/temp_tree.h"

namespace {

using host::Table;
using test_support::ScratchHost;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kDists[] = "/etc/sysconfig/qx-scripts/dists/";

/// What the migration's own parser makes of a text; nothing where it refuses it.
std::optional<Table> migrationsReading(const std::string& text) {
  Expand::ConfParser parser;
  Expand::Config config;
  parser.init(Expand::ConfParser::FROM_STRING, text);
  try {
    parser.parse(config);
  } catch (const Expand::Error&) {
    return std::nullopt;
  }
  Table table;
  for (const auto& [section, options] : config.sections()) {
    for (const auto& [name, option] : options.options()) {
      if (option.defined()) option.value(table[{section, name}]);
    }
  }
  return table;
}

std::optional<Table> ourReading(const std::string& text) {
  try {
    return host::parseTable(text);
  } catch (const host::Error& error) {
    EXPECT_EQ(error.code(), host::ExitCode::kBadConfig);
    EXPECT_THAT(error.what(), testing::StartsWith("line "));
    return std::nullopt;
  }
}

void expectAgreement(const std::string& text) {
  EXPECT_EQ(ourReading(text), migrationsReading(text)) << testing::PrintToString(text);
}

TEST(DistributionTable, IsReadAsTheMigrationReadsIt) {
  int files = 0;
  for (const char* directory : {QX_CONF_CORPUS, QX_DISTS}) {
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
      if (!entry.is_regular_file()) continue;
      expectAgreement(test_support::readFile(entry.path()));
      ++files;
    }
  }
  EXPECT_GT(files, 20);
}

TEST(DistributionTable, LongNamesAndValuesAreRefusedWhereTheMigrationRefusesThem) {
  for (const size_t length : {4094, 4095, 4096}) {
    const std::string word(length, 'a');
    expectAgreement("[" + word + "]\n");
    expectAgreement(word + "=1\n");
    expectAgreement("A=" + word + "\n");
    expectAgreement("A=" + std::string(length, ' ') + "b\n");
    expectAgreement("#" + word + "\n" + std::string(length, ' ') + "A=1");
  }
}

TEST(DistributionTable, RandomTextsAreReadAsTheMigrationReadsThem) {
  std::mt19937 random(20);
  const std::vector<std::string> pieces{"\n",
                                        "\r",
                                        " ",
                                        "\t",
                                        "#",
                                        "[",
                                        "]",
                                        "=",
                                        ":",
                                        "a",
                                        "B1",
                                        "_",
                                        ".-",
                                        "\x80",
                                        "GLOBAL",
                                        "POST_MIGRATE",
                                        "x.sh",
                                        "\"",
                                        std::string(1, '\0')};
  std::uniform_int_distribution<size_t> piece(0, pieces.size() - 1), length(0, 24);
  int accepted = 0;
  for (int round = 0; round < 50000; ++round) {
    std::string text;
    for (size_t left = length(random); left > 0; --left) text += pieces[piece(random)];
    expectAgreement(text);
    accepted += ourReading(text) && text.find('=') != text.npos;
    if (testing::Test::HasFailure()) return;
  }
  EXPECT_GT(accepted, 500);
}

TEST(Distributions, BlanksAroundTheSignAndAColonAreFine) {
  for (const char* line : {"POST_MIGRATE=x.sh\n", "[GLOBAL]\nPOST_MIGRATE = x.sh\n",
                           "[other]\nA=1\n[GLOBAL]\n  POST_MIGRATE :\tx.sh  "}) {
    ScratchHost().file(kDists + std::string("mageia.conf"), line).run([] {
      const host::Distribution found = host::findDistribution("mageia-9");
      EXPECT_EQ(found.script, kDists + std::string("scripts/x.sh"));
      EXPECT_EQ(found.file, kDists + std::string("mageia.conf"));
    });
  }
}

TEST(Distributions, TheVersionsFileCountsAndNoOther) {
  ScratchHost host;
  host.file(kDists + std::string("suse.conf"), "POST_MIGRATE=a.sh\n");
  host.file(kDists + std::string("suse-15.conf"), "POST_MIGRATE=b.sh\n");
  host.file(kDists + std::string("suse-16.conf"), "OTHER=b.sh\n");
  host.file(kDists + std::string("broken.conf"), "[GLOBAL]\nPOST_MIGRATE\n");
  host.run([] {
    EXPECT_THAT(host::findDistribution("suse-15").script, testing::EndsWith("/b.sh"));
    EXPECT_THAT(host::findDistribution("suse-14").script, testing::EndsWith("/a.sh"));
    EXPECT_EQ(host::findDistribution("suse-16").script, "");
    EXPECT_THAT(host::findDistribution("suse-sid").script, testing::EndsWith("/a.sh"));
    EXPECT_EQ(host::findDistribution("sus-e").file, "");
    EXPECT_EQ(host::findDistribution("").file, "");
    EXPECT_EQ(host::findDistribution("../dists/suse").file, "");
    EXPECT_THAT(host::knownDistributions(), ElementsAre("broken", "suse", "suse-15", "suse-16"));
    try {
      host::findDistribution("broken-1");
      ADD_FAILURE() << "a malformed file was accepted";
    } catch (const host::Error& error) {
      EXPECT_THAT(error.what(), HasSubstr("broken.conf: line 2: '=' or ':' expected"));
    }
  });
  ScratchHost().run([] { EXPECT_THAT(host::knownDistributions(), testing::IsEmpty()); });
}

TEST(Distributions, AVersionIsWhatFollowsTheLastDash) {
  using testing::Pair;
  EXPECT_THAT(host::splitDistribution("opensuse-leap-15.5"), Pair("opensuse-leap", "15.5"));
  EXPECT_THAT(host::splitDistribution("debian-sid"), Pair("debian", "sid"));
  EXPECT_THAT(host::splitDistribution("fedora-rawhide"), Pair("fedora", "rawhide"));
  EXPECT_THAT(host::splitDistribution("fedora-"), Pair("fedora-", ""));
  EXPECT_THAT(host::splitDistribution("-9"), Pair("-9", ""));
}

}  // namespace
