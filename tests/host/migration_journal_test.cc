#include "host/migration_journal.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/error.h"
#include "host/fd.h"
#include "host/file.h"
#include "support/scratch_host.h"

namespace {

using host::MigrationJournal;
using host::MigrationState;
using test_support::ScratchHost;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

MigrationJournal journalOf(const std::string& name, unsigned ctid) {
  MigrationJournal journal{name, {}};
  journal.record.ctid = ctid;
  journal.record.updated = "2026-11-21T22:21:25Z";
  journal.record.process = host::thisProcess();
  return journal;
}

std::string pathOf(const std::string& name) {
  return std::string(host::kJournalDir) + "/" + name + ".json";
}

std::string refusalOf(const std::string& name) {
  try {
    host::readJournal(name);
  } catch (const host::Error& problem) {
    return problem.what();
  }
  return "taken";
}

TEST(MigrationJournal, IsRootsAloneAndLeavesNothingBeside) {
  ScratchHost().run([] {
    host::writeJournal(journalOf("101-20261121T222125Z", 101));
    MigrationJournal ended = journalOf("101-20261121T222125Z", 101);
    ended.record.state = MigrationState::kSucceeded;
    host::writeJournal(ended);
    struct stat folder, file;
    ASSERT_EQ(stat(host::kJournalDir, &folder), 0);
    ASSERT_EQ(stat(pathOf("101-20261121T222125Z").c_str(), &file), 0);
    EXPECT_EQ(folder.st_mode & 0777, 0700u);
    EXPECT_EQ(file.st_mode & 0777, 0600u);
    EXPECT_THAT(host::listDirectory(host::kJournalDir), ElementsAre("101-20261121T222125Z.json"));
  });
}

TEST(MigrationJournal, ItsEndIsWrittenThoughTheDiskIsFull) {
  ScratchHost().run([] {
    host::makeDirectories(host::kJournalDir);
    ASSERT_EQ(unshare(CLONE_NEWNS), 0);
    ASSERT_EQ(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
    ASSERT_EQ(mount("small", host::kJournalDir, "tmpfs", 0, "size=1m,nr_inodes=16,mode=700"), 0);
    MigrationJournal journal = journalOf("101-20261121T222125Z", 101);
    host::writeJournal(journal);
    const std::string ballast = std::string(host::kJournalDir) + "/ballast";
    for (int i = 0; i < 20; ++i) {
      const host::Fd file(
          open((ballast + std::to_string(i)).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
      if (file) host::writeAll(file.get(), std::string(200 << 10, 'x'));
    }
    // Neither room nor an inode is left.
    EXPECT_THROW(host::replaceFile(std::string(host::kJournalDir) + "/other", "x", 0600),
                 host::Error);
    const auto begin = [&](const char* stage) {
      journal.record.stages.push_back({stage, "", 0, std::nullopt});
      host::writeJournal(journal);
    };
    // Others can do without.
    EXPECT_THROW(begin("createDstSrv"), host::Error);
    begin("rSync");
    EXPECT_TRUE(host::hasBegun(host::readJournal(journal.name).record, "rSync"));
    // Whatever the first took up again of what it gave up is taken.
    for (int i = 20; i < 40; ++i) {
      const host::Fd file(
          open((ballast + std::to_string(i)).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
      if (file) host::writeAll(file.get(), std::string(200 << 10, 'x'));
    }
    EXPECT_THROW(begin("rSync2"), host::Error);
    journal.record.state = MigrationState::kSucceeded;
    host::writeJournal(journal);
    EXPECT_EQ(host::readJournal(journal.name).record.state, MigrationState::kSucceeded);
  });
}

TEST(MigrationJournal, WhatAWriterThatDiedLeftIsNoJournalAndInNobodysWay) {
  ScratchHost().run([] {
    host::makeDirectories(host::kJournalDir);
    chmod(host::kJournalDir, 0700);
    host::replaceFile(std::string(host::kJournalDir) + "/.101-20261121T222125Z.new", "{\"ver",
                      0600);
    EXPECT_THAT(host::readJournals().journals, IsEmpty());
    EXPECT_THAT(host::readJournals().damaged, IsEmpty());
    host::writeJournal(journalOf("101-20261121T222125Z", 101));
    EXPECT_EQ(host::readJournals().journals.size(), 1u);
  });
}

TEST(MigrationJournal, TwoOfOneSecondHaveTwoNamesInTheirOrder) {
  ScratchHost().run([] {
    std::string first = host::newMigrationName(101);
    for (int i = 0; i < 11; ++i) host::writeJournal(journalOf(host::newMigrationName(101), 101));
    const auto journals = host::readJournals(101).journals;
    ASSERT_EQ(journals.size(), 11u);
    for (size_t i = 1; i < journals.size(); ++i) {
      // "-10" comes after "-9".
      if (journals[i].name.size() == journals[i - 1].name.size()) {
        EXPECT_LT(journals[i - 1].name, journals[i].name);
      }
    }
    EXPECT_EQ(journals.front().name, first);
  });
}

TEST(MigrationJournal, ThoseOfOneContainerAreReadAlone) {
  ScratchHost().run([] {
    host::writeJournal(journalOf("1010-20261121T222125Z", 1010));
    host::writeJournal(journalOf("101-20261121T222126Z", 101));
    EXPECT_EQ(host::readJournals().journals.size(), 2u);
    ASSERT_EQ(host::readJournals(101).journals.size(), 1u);
    EXPECT_EQ(host::readJournals(101).journals[0].name, "101-20261121T222126Z");
  });
}

TEST(MigrationJournal, DamagedOnesAreToldAndHideNoOther) {
  ScratchHost().run([] {
    host::writeJournal(journalOf("101-20261121T222125Z", 101));
    host::writeJournal(journalOf("101-20261121T222126Z", 101));
    host::replaceFile(pathOf("101-20261121T222125Z"), "{}", 0600);
    const host::JournalFolder folder = host::readJournals();
    EXPECT_EQ(folder.journals.size(), 1u);
    EXPECT_THAT(folder.damaged,
                ElementsAre(pathOf("101-20261121T222125Z") + " is damaged: 'version' is missing"));
    // One container's journal under another's name would clean the wrong one.
    ASSERT_EQ(
        rename(pathOf("101-20261121T222126Z").c_str(), pathOf("102-20261121T222126Z").c_str()), 0);
    EXPECT_EQ(refusalOf("102-20261121T222126Z"),
              pathOf("102-20261121T222126Z") + " is damaged: it is of container 101");
  });
}

TEST(MigrationJournal, WhatOthersCouldHaveWrittenIsNotTrusted) {
  ScratchHost().run([] {
    const std::string name = "101-20261121T222125Z";
    host::writeJournal(journalOf(name, 101));
    chmod(pathOf(name).c_str(), 0620);
    EXPECT_THAT(refusalOf(name), HasSubstr("could have been written by another user"));
    chmod(pathOf(name).c_str(), 0600);
    EXPECT_EQ(refusalOf(name), "taken");
    ASSERT_EQ(rename(pathOf(name).c_str(), "/tmp/elsewhere"), 0);
    ASSERT_EQ(symlink("/tmp/elsewhere", pathOf(name).c_str()), 0);
    EXPECT_THAT(refusalOf(name), HasSubstr("cannot read"));
    chmod(host::kJournalDir, 0777);
    EXPECT_THROW(host::readJournals(), host::Error);
  });
}

TEST(MigrationJournal, NamesThatAreNoneAreRefused) {
  for (const char* name : {"", "101", "101-", "../101-20261121T222125Z", "101-20261121T222125Z-x",
                           "101-20261121t222125Z", "x-20261121T222125Z"}) {
    EXPECT_EQ(refusalOf(name), "'" + std::string(name) + "' is not the name of a migration");
  }
}

TEST(InterruptedMigration, IsOneThatSaysRunningAndWhoseProcessIsGone) {
  ScratchHost().run([] {
    MigrationJournal journal = journalOf("101-20261121T222125Z", 101);
    host::writeJournal(journal);
    EXPECT_FALSE(host::interruptedMigration(101));
    // Another process has the pid now.
    journal.record.process.startTime += 1;
    host::writeJournal(journal);
    const auto found = host::interruptedMigration(101);
    ASSERT_TRUE(found);
    EXPECT_EQ(host::interruptionText(found->record),
              "left by a migration that was interrupted at 2026-11-21T22:21:25Z; qxmigrate clean "
              "101 removes it, or run it again");
    host::MigrationRecord complete = found->record;
    complete.stages = {{"tuneDstSrv", "", 0, 0}};
    EXPECT_THAT(host::interruptionText(complete),
                HasSubstr("clean 101 registers it, for it is complete, or run it again"));
    host::makeDirectories("/etc/sysconfig/qx-scripts");
    const char* const configuration = "/etc/sysconfig/qx-scripts/101.conf";
    host::replaceFile(configuration, "MIGRATION=\"101-20261121T222125Z\"\n", 0644);
    EXPECT_TRUE(host::interruptedMigration(101));
    // A container that somebody made since.
    host::replaceFile(configuration, "", 0644);
    EXPECT_FALSE(host::interruptedMigration(101));
    unlink(configuration);
    journal.record.state = MigrationState::kCleaned;
    host::writeJournal(journal);
    EXPECT_FALSE(host::interruptedMigration(101));
  });
}

}  // namespace
