#include "host/migration_record.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "host/error.h"

namespace {

using host::MigrationRecord;
using host::MigrationState;
using testing::HasSubstr;

MigrationRecord sample() {
  MigrationRecord record;
  record.ctid = 101;
  record.source = "root@oldserver";
  record.server = {"0123456789abcdef0123456789abcdef", "SHA256:abc"};
  record.hostname = "old";
  record.distribution = "debian-12";
  record.osTemplate = "debian-12";
  record.excludes = {"/srv/\xff", "/tmp/*"};
  record.services = {"nginx"};
  record.keepOnFailure = true;
  record.hadConfiguration = true;
  record.keptInode = 7;
  record.configuration = "/etc/sysconfig/qx-scripts/101.conf";
  record.privateArea = "/var/lib/qx/private/101";
  record.root = "/var/lib/qx/root/101";
  record.lock = "/run/qx/lock/101.lck";
  record.process = {"boot", 42, 4711};
  record.begun = record.updated = "2026-11-21T22:21:25Z";
  record.state = MigrationState::kFailed;
  record.stages = {{"create", "2026-11-21T22:21:25Z", 0.5, 0}, {"rSync", "later", 0, std::nullopt}};
  record.failedStage = "rSync";
  record.error = "rsync failed";
  record.texts = {"a line"};
  record.keptArea = "/var/lib/qx/private/101.migrated";
  record.keptAreaInode = 9;
  record.bytes = 5000000000;
  record.files = 3;
  record.resources = {{"numproc", 143, {258, 286, true}},
                      {"slmmemorylimit", std::nullopt, {host::kUnlimited, host::kUnlimited, true}}};
  record.warnings = {"a warning"};
  record.leftOut.add("/srv/\xff", "cannot be read on the server: Input/output error");
  return record;
}

std::string with(const std::string& from, const std::string& to) {
  std::string text = host::formatRecord(sample());
  const size_t at = text.find(from);
  EXPECT_NE(at, text.npos) << from << " in " << text;
  return at == text.npos ? text : text.replace(at, from.size(), to);
}

std::string recordRefusal(const std::string& text) {
  try {
    host::parseRecord(text);
  } catch (const host::Error& problem) {
    EXPECT_EQ(problem.code(), host::ExitCode::kBadConfig);
    return problem.what();
  }
  return "taken";
}

TEST(MigrationRecord, IsReadAsItWasWritten) {
  MigrationRecord record = sample();
  record.excludes = {"/tmp/*"};
  const MigrationRecord read = host::parseRecord(host::formatRecord(record));
  EXPECT_EQ(host::formatRecord(read), host::formatRecord(record));
  EXPECT_EQ(read.ctid, 101u);
  EXPECT_EQ(read.process, (host::ProcessIdentity{"boot", 42, 4711}));
  EXPECT_EQ(read.state, MigrationState::kFailed);
  EXPECT_EQ(read.keptAreaInode, 9u);
  EXPECT_TRUE(host::hasSucceeded(read, "create"));
  EXPECT_FALSE(host::hasSucceeded(read, "rSync"));
  EXPECT_TRUE(host::hasBegun(read, "rSync"));
  EXPECT_FALSE(host::hasBegun(read, "rSync2"));
  ASSERT_EQ(read.resources.size(), 2u);
  EXPECT_EQ(read.resources[0].name, "numproc");
  EXPECT_EQ(read.resources[0].measured, 143u);
  EXPECT_EQ(read.resources[0].assigned.limit, 286u);
  EXPECT_EQ(read.resources[1].measured, std::nullopt);
  EXPECT_EQ(read.resources[1].assigned.barrier, host::kUnlimited);
  EXPECT_EQ(read.leftOut.count, 1u);
  EXPECT_EQ(read.leftOut.files.at(0).path, "/srv/\\xff");
}

// Journals are read by newer programs than those that wrote them.
TEST(MigrationRecord, OneFromBeforeCopiesWereLookedAtIsRead) {
  const std::string text = with("\"left_out\"", "\"something_else\"");
  EXPECT_TRUE(host::parseRecord(text).leftOut.isComplete());
}

TEST(MigrationRecord, OneFromBeforeResourcesWereWrittenDownIsRead) {
  EXPECT_TRUE(host::parseRecord(with("\"resources\"", "\"something_else\"")).resources.empty());
}

TEST(MigrationRecord, AThousandLongPathsFitIntoARecord) {
  MigrationRecord record = sample();
  for (size_t i = 0; i < 5000; ++i) record.leftOut.add(std::string(4096, '\\'), "why");
  record.texts.assign(host::kMaxRecordTexts, std::string(host::kMaxRecordText, '\\'));
  record.warnings = record.texts;
  const MigrationRecord read = host::parseRecord(host::formatRecord(record));
  EXPECT_EQ(read.leftOut.count, 5001u);
  EXPECT_GT(read.leftOut.files.size(), 200u);
}

// Or else a server could keep a migration from being cleaned.
TEST(MigrationRecord, TextsThatGrowWhenTheyAreWrittenDoNotMakeItUnreadable) {
  MigrationRecord record = sample();
  record.texts.assign(host::kMaxRecordTexts, std::string(host::kMaxRecordText, '\x01'));
  record.texts.back() = "newest";
  const MigrationRecord read = host::parseRecord(host::formatRecord(record));
  EXPECT_EQ(read.texts.back(), "newest");
  EXPECT_GE(read.texts.size(), 50u);
}

std::string noise(std::mt19937& random, size_t longest = 5000) {
  std::string text(std::min(longest, size_t{1} << random() % 14), '\0');
  const bool same = random() % 2 == 0;
  const char one = "\0\x01\xff\"x"[random() % 5];
  for (char& byte : text) byte = same ? one : static_cast<char>(random());
  return text;
}

std::vector<std::string> noises(std::mt19937& random) {
  std::vector<std::string> texts(random() % 4 == 0 ? 250 : random() % 3);
  for (std::string& text : texts) text = noise(random, 300);
  return texts;
}

MigrationRecord noisyRecord(std::mt19937& random) {
  MigrationRecord record = sample();
  for (std::string* text :
       {&record.source, &record.server.machineId, &record.server.hostKey, &record.hostname,
        &record.distribution, &record.osTemplate, &record.begun, &record.updated,
        &record.process.boot, &record.failedStage, &record.error}) {
    *text = noise(random);
  }
  for (std::string* place :
       {&record.configuration, &record.privateArea, &record.root, &record.lock, &record.keptArea}) {
    *place = "/" + std::string(5000, static_cast<char>(random() % 2));
  }
  for (auto* texts : {&record.excludes, &record.services, &record.texts, &record.warnings}) {
    *texts = noises(random);
  }
  record.process.pid = static_cast<pid_t>(random());
  record.process.startTime = random() % 2 ? ~0ULL : random();
  record.keptInode = record.keptAreaInode = record.leftOut.count = ~0ULL - random() % 2;
  record.bytes = record.files = random() % 2 ? -1 : 5;
  record.stages.assign(random() % 600, {noise(random, 100), noise(random, 100), std::nan(""), -1});
  record.resources.assign(random() % 120, {noise(random, 100), ~0ULL, {~0ULL, ~0ULL, true}});
  record.leftOut.files.assign(random() % 1200, {noise(random, 100), noise(random, 100)});
  return record;
}

// A server says much of this, and a journal that cannot be read is cleaned by nobody.
TEST(MigrationRecord, WhateverIsWrittenCanBeRead) {
  std::mt19937 random(20261121);
  for (int i = 0; i < 10; ++i) {
    const std::string text = host::formatRecord(noisyRecord(random));
    ASSERT_LE(text.size(), host::kMaxRecordBytes) << i;
    ASSERT_NO_THROW(host::parseRecord(text)) << i << ": " << recordRefusal(text);
  }
}

TEST(MigrationRecord, AnErrorThatIsLargerThanAnyJournalIsCut) {
  MigrationRecord record = sample();
  record.error.assign(2 * host::kMaxRecordBytes, 'x');
  const MigrationRecord read = host::parseRecord(host::formatRecord(record));
  EXPECT_EQ(read.error, std::string(host::kMaxRecordValue, 'x'));
  EXPECT_EQ(read.texts, record.texts);
}

TEST(MigrationRecord, ANullByteIsShownAsNoCharacterAndTheRestStays) {
  MigrationRecord record = sample();
  record.error = std::string("rsync\0 failed", 13);
  EXPECT_EQ(host::parseRecord(host::formatRecord(record)).error, "rsync\xEF\xBF\xBD failed");
}

TEST(MigrationRecord, APlaceThatCouldNotBeReadIsNotWritten) {
  MigrationRecord record = sample();
  record.privateArea = "../101";
  EXPECT_THROW(host::formatRecord(record), host::Error);
}

TEST(CopyReport, IsReadAsItWasWritten) {
  host::CopyReport report;
  report.add("/a\tb\nc", "why\x1b[2J");
  report.add("", "rsync does not say");
  report.addNote("copied\tso\x1b[2J");
  const host::CopyReport read = host::parseCopyReport(host::formatCopyReport(report));
  EXPECT_EQ(read.count, 2u);
  EXPECT_EQ(host::textOf(read.files.at(0)), "/a b\\nc: why\\x1b[2J");
  EXPECT_EQ(host::textOf(read.files.at(1)), "rsync does not say");
  EXPECT_THAT(read.notes, testing::ElementsAre("copied so\\x1b[2J"));
  EXPECT_TRUE(host::parseCopyReport("0\n").isComplete());
}

TEST(CopyReport, CountsWhatItDoesNotList) {
  host::CopyReport report;
  for (size_t i = 0; i <= host::kMaxNotCopied; ++i) report.add("/a", "why");
  const host::CopyReport read = host::parseCopyReport(host::formatCopyReport(report));
  EXPECT_EQ(read.count, host::kMaxNotCopied + 1);
  EXPECT_EQ(read.files.size(), host::kMaxNotCopied);
}

TEST(CopyReport, AnyOtherTextIsRefused) {
  for (const char* text : {"", "1", "x\n", "-1\n", "0\n/a\twhy\n", "1\n/a why\n", "1\n/a\twhy"}) {
    EXPECT_THROW(host::parseCopyReport(text), host::Error) << text;
  }
}

TEST(MigrationRecord, AnyByteOfAFileNameCanBeWritten) {
  EXPECT_EQ(host::parseRecord(host::formatRecord(sample())).excludes[0], "/srv/\xEF\xBF\xBD");
}

TEST(MigrationRecord, ListsAndTextsAreBounded) {
  MigrationRecord record = sample();
  record.texts.assign(host::kMaxRecordTexts + 1, std::string(host::kMaxRecordText + 1, 'x'));
  record.texts.back() = "newest";
  const MigrationRecord read = host::parseRecord(host::formatRecord(record));
  EXPECT_EQ(read.texts.size(), host::kMaxRecordTexts);
  EXPECT_EQ(read.texts.front().size(), host::kMaxRecordText);
  EXPECT_EQ(read.texts.back(), "newest");
}

TEST(MigrationRecord, WhatItWouldNotHaveWrittenIsRefusedByName) {
  EXPECT_EQ(recordRefusal(""), "it is not JSON");
  EXPECT_EQ(recordRefusal(host::formatRecord(sample()).substr(0, 300)), "it is not JSON");
  EXPECT_EQ(recordRefusal("[]"), "'' is not an object");
  EXPECT_EQ(recordRefusal(with("\"version\": 1", "\"version\": 2")),
            "its format has version 2, not 1");
  EXPECT_EQ(recordRefusal(with("\"ctid\": 101", "\"ctid\": -1")),
            "'ctid' is not a number from 0 to 2147483644");
  EXPECT_EQ(recordRefusal(with("\"ctid\": 101", "\"ctid\": 0")), "'ctid' is 0");
  EXPECT_EQ(recordRefusal(with("\"failed\"", "\"sleeping\"")), "'state' is 'sleeping'");
  EXPECT_EQ(recordRefusal(with("\"pid\"", "\"pit\"")), "'process.pid' is missing");
  EXPECT_EQ(recordRefusal(with("/var/lib/qx/private/101\"", "/var/lib/../etc\"")),
            "'places.private_area' is '/var/lib/../etc', which is no absolute path");
  EXPECT_EQ(recordRefusal(with("\"root@oldserver\"", "7")), "'source' is not a text");
  EXPECT_EQ(recordRefusal(with("\"nginx\"", "{}")), "'parameters.services' is not a text");
  EXPECT_EQ(recordRefusal(with("\"result\": 0", "\"result\": \"0\"")),
            "'stages.result' is not a number");
  EXPECT_EQ(recordRefusal(with("\"measured\": 143", "\"measured\": -1")),
            "'resources.measured' is not a number from 0 to 9223372036854775807");
  EXPECT_THAT(recordRefusal(std::string(host::kMaxRecordBytes + 1, ' ')), HasSubstr("larger"));
  EXPECT_EQ(recordRefusal(std::string(1000, '[') + std::string(1000, ']')),
            "it is nested too deep");
}

TEST(SameServer, NeedsSomethingKnownOfBothAndNothingThatDiffers) {
  using host::isSameServer;
  EXPECT_TRUE(isSameServer({"a", "k"}, {"a", "k"}));
  EXPECT_TRUE(isSameServer({"a", ""}, {"a", "k"}));
  EXPECT_TRUE(isSameServer({"", "k"}, {"a", "k"}));
  EXPECT_FALSE(isSameServer({"a", "k"}, {"a", "l"}));
  EXPECT_FALSE(isSameServer({"a", "k"}, {"b", "k"}));
  EXPECT_FALSE(isSameServer({"a", ""}, {"", "k"}));
  // Another setting of ssh has it ask for another of the server's keys.
  EXPECT_TRUE(isSameServer({"a", "k ssh-ed25519"}, {"a", "l ssh-rsa"}));
  EXPECT_FALSE(isSameServer({"", "k ssh-ed25519"}, {"", "l ssh-rsa"}));
  EXPECT_FALSE(isSameServer({"a", "k ssh-rsa"}, {"a", "l ssh-rsa"}));
  // Journals of before have no kind.
  EXPECT_TRUE(isSameServer({"a", "k ssh-rsa"}, {"a", "k"}));
  EXPECT_FALSE(isSameServer({"a", "k ssh-rsa"}, {"a", "l"}));
  EXPECT_FALSE(isSameServer({}, {}));
}

}  // namespace
