// Finishing migrations that died, with the node's own tools, on a scratch host.
#include "agent/journal/recovery.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>

#include "agent/journal/journal.h"
#include "agent/journal/leftovers.h"
#include "agent/journal/resumption.h"
#include "host/clock.h"
#include "host/error.h"
#include "host/file.h"
#include "host/process.h"
#include "host/process_mark.h"
#include "host/text.h"
#include "support/container_101.h"
#include "support/scratch_host.h"

namespace {

using agent::Copy;
using host::MigrationJournal;
using host::MigrationState;
using test_support::kArea;
using test_support::kConf;
using test_support::ScratchHost;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kName[] = "101-20261121T222125Z";
constexpr char kKept[] = "/var/lib/qx/private/101.migrated";
constexpr char kLock[] = "/run/qx/lock/101.lck";

// A host with the tools as they are built.
ScratchHost node() {
  ScratchHost host;
  host.symlink("/usr/sbin/qxctl", QX_CTL).symlink("/usr/sbin/mkqxfs", QX_MKQXFS);
  host.dir("/etc/sysconfig/qx-scripts").dir("/run/qx/lock").dir("/var/lib/qx/private");
  return host;
}

host::ProcessIdentity deadProcess() {
  host::ProcessIdentity process = host::thisProcess();
  const pid_t pid = fork();
  if (pid == 0) _exit(0);
  waitpid(pid, nullptr, 0);
  process.pid = pid;
  return process;
}

// The journal of a migration that died in this stage.
MigrationJournal interrupted(std::initializer_list<const char*> stages) {
  MigrationJournal journal{kName, {}};
  host::MigrationRecord& record = journal.record;
  record.ctid = 101;
  record.source = "root@old";
  record.server.machineId = "0123456789abcdef0123456789abcdef";
  record.privateArea = kArea;
  record.begun = record.updated = "2026-11-21T22:21:25Z";
  record.process = deadProcess();
  for (const char* stage : stages) record.stages.push_back({stage, "", 0, 0});
  if (!record.stages.empty()) record.stages.back().result.reset();
  host::writeJournal(journal);
  return journal;
}

void writeConfiguration(const std::string& migration = kName) {
  host::replaceFile(kConf, "MIGRATION=\"" + migration + "\"\n", 0644);
}

// As createDstSrv and a copy leave it.
void makeContainer() {
  writeConfiguration();
  host::runProgram({"/usr/sbin/mkqxfs", kArea});
  host::makeDirectories(std::string(kArea) + "/fs/bin");
  host::replaceFile(std::string(kArea) + "/fs/bin/sh", "", 0755);
  host::runProgram({"/usr/sbin/qxctl", "mount", "101"});
}

MigrationState stateNow() { return host::readJournal(kName).record.state; }

void expectNothingLeft() {
  EXPECT_FALSE(host::exists(kConf));
  EXPECT_FALSE(host::exists(kArea));
  EXPECT_FALSE(host::exists("/var/lib/qx/root/101"));
  EXPECT_FALSE(host::exists(kLock));
}

// As at boot, when a disk comes late.
TEST(Recovery, AnAreaOnADiskThatIsNotMountedIsLeftForLater) {
  ScratchHost host = node();
  host.file("/etc/fstab", "/dev/late /var/lib/qx/private ext4 nofail 0 2\n");
  host.run([] {
    const MigrationJournal journal = interrupted({"createDstSrv", "rSync"});
    writeConfiguration();
    try {
      agent::recover(journal, Copy::kAsTold);
      ADD_FAILURE() << "it is finished";
    } catch (const host::Error& problem) {
      EXPECT_STREQ(problem.what(),
                   "the private area /var/lib/qx/private/101 is on /var/lib/qx/private, which is "
                   "not mounted: 'mount /var/lib/qx/private', and clean again");
    }
    EXPECT_TRUE(host::exists(kConf));
    EXPECT_EQ(stateNow(), MigrationState::kRunning);
  });
}

TEST(Recovery, WhatDiedBeforeItMadeAnythingLeavesItsLockAndFoldersAlone) {
  node().run([] {
    const MigrationJournal journal = interrupted({"lockVPS"});
    const std::string pid = std::to_string(journal.record.process.pid);
    const std::string word = host::processWord(journal.record.process);
    host::replaceFile(kLock, pid + "\nmigrating\n", 0644);
    host::replaceFile(std::string(kLock) + "abcdef", pid + "\nmigrating\n", 0644);
    host::makeDirectories("/tmp/qxmigrate." + word + ".abcdef/deeper");
    const std::string alive = "qxmigrate." + host::processWord(host::thisProcess()) + ".abcdef";
    for (const std::string& name : {alive, std::string("qxmigrate.1.x.a"), std::string("other")}) {
      host::makeDirectories("/tmp/" + name);
    }
    EXPECT_THAT(agent::recover(journal, Copy::kAsTold), ElementsAre("Nothing of it was left."));
    expectNothingLeft();
    EXPECT_FALSE(host::exists(std::string(kLock) + "abcdef"));
    // The sources may lie there, too.
    const auto left = host::listDirectory("/tmp");
    EXPECT_THAT(
        left, testing::IsSupersetOf({std::string("other"), std::string("qxmigrate.1.x.a"), alive}));
    EXPECT_THAT(left, testing::Not(testing::Contains("qxmigrate." + word + ".abcdef")));
    EXPECT_EQ(stateNow(), MigrationState::kCleaned);
    EXPECT_FALSE(host::interruptedMigration(101));
  });
}

TEST(Recovery, AHalfMadeContainerIsUnmountedAndRemoved) {
  node().run([] {
    const MigrationJournal journal = interrupted({"createDstSrv", "rSync"});
    makeContainer();
    EXPECT_THAT(agent::recover(journal, Copy::kAsTold), ElementsAre("Container 101 was removed."));
    expectNothingLeft();
    EXPECT_EQ(stateNow(), MigrationState::kCleaned);
    // Once more there is nothing to do.
    EXPECT_THAT(agent::recover(journal, Copy::kAsTold), ElementsAre());
  });
}

TEST(Recovery, AConfigurationAloneIsRemoved) {
  node().run([] {
    const MigrationJournal journal = interrupted({"createDstSrv"});
    writeConfiguration();
    agent::recover(journal, Copy::kAsTold);
    expectNothingLeft();
  });
}

TEST(Recovery, ACopyIsKeptWhenTheMigrationWasToldTo) {
  node().run([] {
    MigrationJournal journal = interrupted({"createDstSrv", "rSync"});
    journal.record.keepOnFailure = true;
    host::writeJournal(journal);
    makeContainer();
    const uint64_t inode = agent::inodeOf(kArea);
    EXPECT_THAT(agent::recover(journal, Copy::kAsTold),
                ElementsAre(HasSubstr("is kept in /var/lib/qx/private/101.migrated")));
    expectNothingLeft();
    EXPECT_TRUE(host::exists(std::string(kKept) + "/fs/bin/sh"));
    const host::MigrationRecord record = host::readJournal(kName).record;
    EXPECT_EQ(record.keptArea, kKept);
    EXPECT_EQ(record.keptAreaInode, inode);
  });
}

TEST(Recovery, OneThatDiedWhileItKeptTheCopyIsCompleted) {
  node().run([] {
    const MigrationJournal journal = interrupted({"createDstSrv", "rSync", "finish"});
    writeConfiguration();
    host::makeDirectories(kKept);
    agent::recover(journal, Copy::kKept);
    expectNothingLeft();
    EXPECT_TRUE(host::exists(kKept));
    EXPECT_EQ(host::readJournal(kName).record.keptArea, kKept);
  });
}

TEST(Recovery, WhatAnEarlierOneKeptIsKeptAgainWhenItWasTakenBackAndNoMore) {
  node().run([] {
    MigrationJournal journal = interrupted({"createDstSrv"});
    host::makeDirectories(kArea);
    journal.record.keptInode = agent::inodeOf(kArea);
    host::writeJournal(journal);
    agent::recover(journal, Copy::kAsTold);
    EXPECT_FALSE(host::exists(kArea));
    EXPECT_TRUE(host::exists(kKept));
  });
}

TEST(Recovery, WhatSomebodyElsePutInThePlaceOfAKeptCopyDoesNotBecomeOne) {
  for (const bool configured : {false, true}) {
    node().run([&] {
      host::makeDirectories(kKept);
      MigrationJournal journal = interrupted({"createDstSrv"});
      journal.record.keptInode = agent::inodeOf(kKept);
      host::writeJournal(journal);
      if (configured) writeConfiguration();
      agent::recover(journal, Copy::kKept);
      EXPECT_TRUE(host::exists(kKept));
      EXPECT_FALSE(host::exists(kConf));
      EXPECT_EQ(host::readJournal(kName).record.keptArea, "");
    });
  }
}

// As of a qxctl that got the number of the process that died.
TEST(Recovery, ALockOfALiveProcessThatHasThePidNowStays) {
  node().run([] {
    MigrationJournal journal = interrupted({"createDstSrv"});
    writeConfiguration();
    journal.record.process = host::thisProcess();
    journal.record.process.startTime -= 1;
    host::writeJournal(journal);
    const std::string lock = std::to_string(getpid()) + "\nmounting\n";
    host::replaceFile(kLock, lock, 0644);
    EXPECT_THROW(agent::recover(journal, Copy::kAsTold), host::Error);
    EXPECT_EQ(host::readFile(kLock), lock);
    EXPECT_TRUE(host::exists(kConf));
  });
}

TEST(Recovery, AnAdaptedContainerIsRegisteredAndStays) {
  node().run([] {
    MigrationJournal journal = interrupted({"createDstSrv", "rSync", "tuneDstSrv", "finish"});
    makeContainer();
    agent::recover(journal, Copy::kRemoved);
    EXPECT_EQ(stateNow(), MigrationState::kSucceeded);
    EXPECT_TRUE(host::exists(std::string(kArea) + "/.qx-registered"));
    EXPECT_TRUE(host::exists(kConf));
    EXPECT_FALSE(host::exists(kLock));
    // It is not mounted any more.
    EXPECT_THROW(host::runProgram({"/usr/sbin/qxctl", "umount", "101"}), host::Error);
  });
}

TEST(Recovery, OfACompleteContainerItSaysWhatIsKnownOfTheServersServices) {
  struct Case {
    int finished;  // ends that have begun to finish
    std::optional<int> last;
    const char* text;
  };
  for (const Case& one : {Case{0, std::nullopt, "The server was not told, and starts"},
                          Case{1, 0, "The server was not told, and starts"},
                          Case{2, std::nullopt, "It is not known whether the server was told"},
                          Case{2, -1, "It is not known whether the server was told"},
                          Case{2, 0, "registered now. Stopped on the server: nginx ticker."}}) {
    node().run([&] {
      MigrationJournal journal = interrupted({"createDstSrv", "rSync", "tuneDstSrv"});
      journal.record.services = {"nginx", "ticker"};
      journal.record.stages.back().result = 0;
      for (int i = 0; i < one.finished; ++i) journal.record.stages.push_back({"finish", "", 0, 0});
      if (one.finished > 0) journal.record.stages.back().result = one.last;
      host::writeJournal(journal);
      makeContainer();
      EXPECT_THAT(agent::recover(journal, Copy::kAsTold), ElementsAre(HasSubstr(one.text)));
    });
  }
}

TEST(ClearTheWay, AnAdaptedCopyIsGoneOnFromUnlessItWasRegistered) {
  const agent::Attempt attempt{101, {"0123456789abcdef0123456789abcdef", ""}, kArea, false};
  const auto say = [](const std::string&) {};
  node().run([&] {
    interrupted({"createDstSrv", "rSync", "tuneDstSrv", "finish"});
    makeContainer();
    agent::clearTheWay(attempt, say);
    EXPECT_TRUE(host::exists(kKept));
    expectNothingLeft();
  });
  node().run([&] {
    interrupted({"createDstSrv", "rSync", "tuneDstSrv", "finish"});
    makeContainer();
    host::runProgram({"/usr/sbin/qxctl", "convert", "101"});
    try {
      agent::clearTheWay(attempt, say);
      ADD_FAILURE() << "nobody would know that the container is there";
    } catch (const std::runtime_error& problem) {
      EXPECT_THAT(problem.what(), HasSubstr("container 101 is there, and complete"));
    }
    EXPECT_EQ(stateNow(), MigrationState::kSucceeded);
    EXPECT_TRUE(host::exists(std::string(kArea) + "/fs/bin/sh"));
  });
}

TEST(Recovery, AContainerThatIsNotOfThisMigrationIsNotTouched) {
  node().run([] {
    const MigrationJournal journal = interrupted({"createDstSrv", "rSync"});
    makeContainer();
    for (const char* other : {"101-20261121T222126Z", ""}) {
      writeConfiguration(other);
      host::writeJournal(journal);
      EXPECT_THAT(agent::recover(journal, Copy::kRemoved),
                  ElementsAre("What there is of container 101 is not of this migration: it was "
                              "left as it is."));
      EXPECT_TRUE(host::exists(std::string(kArea) + "/fs/bin/sh"));
      EXPECT_TRUE(host::exists(kConf));
      EXPECT_EQ(stateNow(), MigrationState::kCleaned);
    }
  });
}

TEST(Recovery, AContainerThatWasRegisteredSinceIsNotTouched) {
  node().run([] {
    const MigrationJournal journal = interrupted({"createDstSrv", "rSync"});
    makeContainer();
    host::runProgram({"/usr/sbin/qxctl", "convert", "101"});
    EXPECT_THAT(agent::recover(journal, Copy::kRemoved),
                ElementsAre(HasSubstr("was registered since")));
    EXPECT_TRUE(host::exists(std::string(kArea) + "/fs/bin/sh"));
  });
}

// A journal as a migration begins it, on what there is now, and as one that died leaves it.
MigrationJournal begunOn() {
  MigrationJournal journal = interrupted({"createDstSrv", "rSync"});
  host::MigrationRecord& record = journal.record;
  const agent::Journal begun(record);
  const host::MigrationRecord& known = begun.record();
  record.hadPrivateArea = known.hadPrivateArea;
  record.keptInode = known.keptInode;
  record.registrationInode = known.registrationInode;
  record.hadAdaptMarker = known.hadAdaptMarker;
  host::removeJournal(begun.name());
  host::writeJournal(journal);
  return host::readJournal(kName);
}

const std::string kRegistered = "/.qx-registered";
const std::string kToBeAdapted = "/.qx-adapt";

// As a template leaves it, that an earlier attempt had unpacked.
TEST(Recovery, AMarkFromATemplateInWhatWasTakenBackIsNoTakeOver) {
  for (const bool started : {false, true}) {
    node().run([&] {
      host::makeDirectories(kKept);
      host::replaceFile(kKept + kRegistered, "", 0644);
      host::replaceFile(kKept + kToBeAdapted, "", 0644);
      const MigrationJournal journal = begunOn();
      ASSERT_EQ(rename(kKept, kArea), 0);
      writeConfiguration();
      if (started) unlink((kArea + kToBeAdapted).c_str());
      agent::recover(journal, Copy::kKept);
      EXPECT_EQ(host::exists(kKept), !started);
      EXPECT_EQ(host::exists(kConf), started);
    });
  }
}

TEST(Recovery, AMarkOfAFormerContainerIsNoTakeOver) {
  node().run([] {
    makeContainer();
    host::runProgram({"/usr/sbin/qxctl", "convert", "101"});
    unlink(kConf);
    const MigrationJournal journal = begunOn();
    writeConfiguration();
    agent::recover(journal, Copy::kAsTold);
    EXPECT_FALSE(host::exists(kConf));
    EXPECT_TRUE(host::exists(kArea + kRegistered));
  });
}

TEST(Recovery, AMarkThatReplacesTheFormerOneIsATakeOver) {
  node().run([] {
    makeContainer();
    host::runProgram({"/usr/sbin/qxctl", "convert", "101"});
    const MigrationJournal journal = begunOn();
    host::replaceFile(kArea + kRegistered, "", 0644);
    EXPECT_THAT(agent::recover(journal, Copy::kAsTold),
                ElementsAre(HasSubstr("was registered since")));
    EXPECT_TRUE(host::exists(kConf));
  });
}

TEST(Recovery, APrivateAreaThatWasThereBeforeStays) {
  node().run([] {
    MigrationJournal journal = interrupted({"createDstSrv", "rSync"});
    journal.record.hadPrivateArea = true;
    host::writeJournal(journal);
    makeContainer();
    agent::recover(journal, Copy::kRemoved);
    EXPECT_TRUE(host::exists(std::string(kArea) + "/fs/bin/sh"));
    EXPECT_FALSE(host::exists(kConf));
    EXPECT_FALSE(host::exists("/var/lib/qx/root/101"));
  });
}

TEST(Recovery, ProgramsThatRunOnAreEnded) {
  node().run([] {
    const MigrationJournal journal = interrupted({"createDstSrv"});
    const pid_t pid = fork();
    if (pid == 0) {
      setenv(host::kProcessVariable, host::processWord(journal.record.process).c_str(), 1);
      signal(SIGTERM, SIG_DFL);
      execl("/bin/sleep", "sleep", "1000", nullptr);
      _exit(127);
    }
    const pid_t other = fork();
    if (other == 0) {
      setenv(host::kProcessVariable, (host::processWord(journal.record.process) + "1").c_str(), 1);
      execl("/bin/sleep", "sleep", "1000", nullptr);
      _exit(127);
    }
    usleep(300000);
    const pid_t waiter = fork();
    if (waiter == 0) _exit(0);
    waitpid(waiter, nullptr, 0);
    agent::recover(journal, Copy::kAsTold);
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, WNOHANG), pid);
    EXPECT_EQ(waitpid(other, &status, WNOHANG), 0);
    kill(other, SIGKILL);
    waitpid(other, &status, 0);
  });
}

TEST(Recovery, AContainerThatAnotherProcessWorksOnIsLeftForLater) {
  node().run([] {
    const MigrationJournal journal = interrupted({"createDstSrv"});
    writeConfiguration();
    host::replaceFile(kLock, std::to_string(getpid()) + "\nmounting\n", 0644);
    EXPECT_THROW(agent::recover(journal, Copy::kAsTold), host::Error);
    EXPECT_TRUE(host::exists(kConf));
    EXPECT_EQ(stateNow(), MigrationState::kRunning);
  });
}

constexpr char kMachine[] = "0123456789abcdef0123456789abcdef";
constexpr char kOtherMachine[] = "1123456789abcdef0123456789abcdef";

std::string refusal(const std::function<void()>& work) {
  try {
    work();
  } catch (const std::runtime_error& problem) {
    return problem.what();
  }
  return "";
}

TEST(ClearTheWay, ACopyOfTheSameServerIsKeptHoweverTheServerIsCalled) {
  node().run([] {
    interrupted({"createDstSrv", "rSync"});
    makeContainer();
    const agent::Attempt attempt{101, {kMachine, ""}, kArea, false};
    std::string said;
    const auto say = [&](const std::string& text) { said += text + "\n"; };
    EXPECT_TRUE(agent::clearTheWay(attempt, say));
    expectNothingLeft();
    EXPECT_TRUE(host::exists(std::string(kKept) + "/fs/bin/sh"));
    said.clear();
    // What was kept stays for an attempt after the next.
    EXPECT_TRUE(agent::clearTheWay(attempt, say));
    EXPECT_EQ(said, "");
    EXPECT_TRUE(host::exists(std::string(kKept) + "/fs/bin/sh"));
  });
}

TEST(ClearTheWay, ACopyOfAnotherServerIsLeftAndTheMigrationRefused) {
  struct Case {
    const char* machine;
    const char* reason;
  };
  for (const Case& one : {Case{kOtherMachine, "is of another server (root@old)"},
                          Case{"", "may be of another server (root@old)"}}) {
    node().run([&] {
      const MigrationJournal journal = interrupted({"createDstSrv", "rSync"});
      makeContainer();
      const agent::Attempt attempt{101, {one.machine, ""}, kArea, false};
      const auto clear = [&] { agent::clearTheWay(attempt, [](const std::string&) {}); };
      EXPECT_THAT(refusal(clear), testing::AllOf(HasSubstr(one.reason), HasSubstr("--fresh")));
      EXPECT_TRUE(host::exists(std::string(kArea) + "/fs/bin/sh"));
      EXPECT_EQ(stateNow(), MigrationState::kRunning);
      agent::recover(journal, Copy::kKept);
      EXPECT_THAT(refusal(clear), testing::AllOf(HasSubstr(one.reason), HasSubstr("--fresh")));
      EXPECT_TRUE(host::exists(std::string(kKept) + "/fs/bin/sh"));
    });
  }
}

TEST(ClearTheWay, WhereNothingWasCopiedAnotherServerIsWelcome) {
  node().run([] {
    interrupted({"createDstSrv"});
    writeConfiguration();
    EXPECT_FALSE(
        agent::clearTheWay({101, {kOtherMachine, ""}, kArea, false}, [](const std::string&) {}));
    expectNothingLeft();
  });
}

TEST(ClearTheWay, WhoeverBeginsAfreshKeepsNothingOfAnyServer) {
  for (const char* machine : {kMachine, kOtherMachine}) {
    for (const bool kept : {false, true}) {
      node().run([&] {
        const MigrationJournal journal = interrupted({"createDstSrv", "rSync"});
        makeContainer();
        if (kept) agent::recover(journal, Copy::kKept);
        std::string said;
        EXPECT_FALSE(agent::clearTheWay({101, {machine, ""}, kArea, true},
                                        [&](const std::string& text) { said += text; }));
        expectNothingLeft();
        EXPECT_FALSE(host::exists(kKept));
        EXPECT_THAT(said, HasSubstr("it is to begin afresh"));
      });
    }
  }
}

TEST(ClearTheWay, WhatNoJournalTellsOfStaysUnlessItIsToBeginAfresh) {
  node().run([] {
    host::makeDirectories(kKept);
    agent::Attempt attempt{101, {}, kArea, false};
    const auto say = [](const std::string&) {};
    EXPECT_TRUE(agent::clearTheWay(attempt, say));
    EXPECT_TRUE(host::exists(kKept));
    attempt.fresh = true;
    agent::clearTheWay(attempt, say);
    EXPECT_FALSE(host::exists(kKept));
  });
}

TEST(Journal, TellsWhatThereWasBeforeAndWhatWasDone) {
  node().run([] {
    host::makeDirectories(kKept);
    writeConfiguration("");
    host::MigrationRecord record;
    record.ctid = 101;
    record.privateArea = kArea;
    agent::Journal journal(record);
    journal.stageBegins("lockVPS");
    EXPECT_FALSE(host::readJournal(journal.name()).record.stages.at(0).result);
    journal.text("said");
    journal.stageEnds("lockVPS", -1, 1.5);
    host::MigrationRecord read = host::readJournal(journal.name()).record;
    EXPECT_EQ(read.process, host::thisProcess());
    EXPECT_EQ(read.state, MigrationState::kRunning);
    EXPECT_TRUE(read.hadConfiguration);
    EXPECT_FALSE(read.hadPrivateArea);
    EXPECT_EQ(read.keptInode, agent::inodeOf(kKept));
    EXPECT_EQ(read.stages.at(0).result, -1);
    EXPECT_THAT(read.texts, ElementsAre("said"));
    journal.end(MigrationState::kFailed, "lockVPS", "locked");
    read = host::readJournal(journal.name()).record;
    EXPECT_EQ(read.state, MigrationState::kFailed);
    EXPECT_EQ(read.error, "locked");
    // No journal tells of what is there.
    EXPECT_EQ(read.keptArea, "");
    EXPECT_EQ(journal.problem(), "");
  });
}

TEST(Journal, NamesTheKeptCopyThatAnEarlierOneNamedOrThatItTookBackItself) {
  for (const bool named : {true, false}) {
    node().run([&] {
      host::makeDirectories(kKept);
      host::MigrationRecord record;
      record.ctid = 101;
      record.privateArea = kArea;
      if (named) {
        MigrationJournal earlier = interrupted({"createDstSrv"});
        earlier.record.state = MigrationState::kFailed;
        earlier.record.keptArea = kKept;
        earlier.record.keptAreaInode = agent::inodeOf(kKept);
        host::writeJournal(earlier);
      }
      agent::Journal journal(record);
      journal.stageBegins("createDstSrv");
      journal.stageEnds("createDstSrv", named ? -1 : 0, 1);
      journal.end(MigrationState::kFailed, "createDstSrv", "");
      EXPECT_EQ(host::readJournal(journal.name()).record.keptArea, kKept);
    });
  }
}

TEST(Journal, OneThatCannotBeBegunStopsTheMigrationAndALaterFailureDoesNot) {
  node().run([] {
    host::MigrationRecord record;
    record.ctid = 101;
    record.privateArea = kArea;
    agent::Journal journal(record);
    host::runProgram({"rm", "-rf", host::kJournalDir});
    host::replaceFile(host::kJournalDir, "", 0600);
    journal.stageBegins("lockVPS");
    EXPECT_THAT(journal.problem(), HasSubstr("is not a directory"));
    EXPECT_THROW(agent::Journal{record}, host::Error);
  });
}

}  // namespace
