// The tools as programs: command lines, exit codes, what they print.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <future>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>
#include <vector>

#include "host/file.h"
#include "host/migration_journal.h"
#include "host/mounts.h"
#include "host/text.h"
#include "node_test/system_tree.h"
#include "support/container_101.h"
#include "support/scratch_host.h"

namespace {

using node_test::runTool;
using node_test::ToolResult;
using test_support::kConf;
using test_support::ScratchHost;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

template <class... Arguments>
ToolResult qxctl(const Arguments&... arguments) {
  return runTool({node_test::toolPath("qxctl"), arguments...});
}
template <class... Arguments>
ToolResult tool(const char* name, const Arguments&... arguments) {
  return runTool({node_test::toolPath(name), arguments...});
}

TEST(Qxctl, LifeOfAContainerAsAMigrationLeadsIt) {
  ScratchHost().file(kConf, "DISTRIBUTION=\"debian-12\"\n").file("/s", "exit 7\n").run([] {
    EXPECT_EQ(tool("mkqxfs", "/var/lib/qx/private/101").status, 0);
    EXPECT_EQ(qxctl("--skiplock", "mount", "101").status, 0);
    node_test::makeSystemTree("/var/lib/qx/root/101");
    EXPECT_EQ(qxctl("--skiplock", "runscript", "101", "/s").status, 7);
    EXPECT_EQ(qxctl("--skiplock", "umount", "101").status, 0);
    EXPECT_EQ(qxctl("--skiplock", "umount", "101").status, 16);
    EXPECT_EQ(qxctl("--skiplock", "convert", "101").status, 0);
    EXPECT_EQ(qxctl("--skiplock", "convert", "101").status, 0);
    EXPECT_EQ(qxctl("status", "101").status, 0);
    EXPECT_EQ(qxctl("--skiplock", "destroy", "101").status, 0);
    EXPECT_EQ(qxctl("status", "101").status, 14);
    EXPECT_EQ(qxctl("--skiplock", "destroy", "101").status, 14);
  });
}

TEST(Qxctl, StatusTellsWhatAnInterruptedMigrationLeft) {
  ScratchHost().file(kConf, "MIGRATION=\"101-20261121T222125Z\"\n").run([] {
    host::MigrationJournal journal{"101-20261121T222125Z", {}};
    journal.record.ctid = 101;
    journal.record.updated = "2026-11-21T22:30:00Z";
    journal.record.process = host::thisProcess();
    host::writeJournal(journal);
    EXPECT_THAT(qxctl("status", "101").out, Not(HasSubstr("interrupted")));
    journal.record.process.startTime += 1;
    host::writeJournal(journal);
    const char* const text =
        "left by a migration that was interrupted at 2026-11-21T22:30:00Z; qxmigrate clean 101 "
        "removes it, or run it again";
    EXPECT_THAT(qxctl("status", "101").out, HasSubstr(std::string("\n  ") + text + "\n"));
    EXPECT_EQ(nlohmann::json::parse(qxctl("status", "--json", "101").out)["interruption"], text);
  });
}

TEST(Qxctl, HonoursTheLockUnlessToldToSkipIt) {
  ScratchHost().file(kConf, "").dir("/var/lib/qx/private/101/fs").dir("/run/qx/lock").run([] {
    host::replaceFile("/run/qx/lock/101.lck", host::textf("%d\nmigrating\n", getpid()), 0644);
    const ToolResult refused = qxctl("mount", "101");
    EXPECT_EQ(refused.status, 9);
    EXPECT_EQ(refused.err, host::textf("qxctl: container 101 is locked by process %d "
                                       "(migrating)\n",
                                       getpid()));
    EXPECT_EQ(qxctl("--skiplock", "mount", "101").status, 0);
    EXPECT_EQ(qxctl("status", "101").status, 0) << "looking needs no lock";
    EXPECT_TRUE(host::exists("/run/qx/lock/101.lck"));
  });
}

TEST(Qxctl, SaysWhichFileSystemIsMissingInPlaceOfTheContainersState) {
  ScratchHost()
      .file(kConf, "VE_PRIVATE=/srv/qx/101\nNETIF='ifname=eth0,ip=192.0.2.7/24,ip=dhcp'\n")
      .file("/etc/sysconfig/qx-scripts/102.conf", "IP_ADDRESS=auto\n")
      .file("/etc/fstab", "/dev/vdb /srv ext4 defaults,nofail 0 2\n")
      .run([] {
        const ToolResult status = qxctl("status", "101");
        EXPECT_THAT(status.out,
                    HasSubstr("container 101: area not mounted, not mounted, stopped\n"));
        EXPECT_THAT(status.out, HasSubstr("/srv, which /etc/fstab has"));
        EXPECT_EQ(nlohmann::json::parse(qxctl("status", "101", "--json").out)["missing_mount"],
                  "/srv");
        const ToolResult list = qxctl("list", "-a");
        EXPECT_THAT(list.out, HasSubstr("101  area not mounted  ?           192.0.2.7/24 dhcp\n"));
        EXPECT_THAT(list.out, HasSubstr("102  no files          no          auto\n"));
        const ToolResult start = qxctl("start", "101");
        EXPECT_EQ(start.status, 14);
        EXPECT_THAT(start.err, HasSubstr("'mount /srv'"));
        // Nothing is made where it would be hidden once that is mounted.
        EXPECT_EQ(qxctl("set", "101", "OSTEMPLATE=any").status, 0);
        for (const ToolResult& made : {qxctl("create", "101"), tool("mkqxfs", "/srv/qx/101")}) {
          EXPECT_EQ(made.status, 14);
          EXPECT_THAT(made.err, HasSubstr("is on /srv, which is not mounted: 'mount /srv'"));
        }
        EXPECT_FALSE(host::exists("/srv/qx"));
        EXPECT_THAT(qxctl("start", "102").err, HasSubstr("'qxctl create 102'"));
      });
}

TEST(Qxctl, NamesAWordThatIsNoCommandAndWhatWasMeant) {
  ScratchHost().run([] {
    const ToolResult result = qxctl("strat", "101");
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err,
              "qxctl: there is no command 'strat', did you mean 'start'? (see qxctl --help)\n");
    EXPECT_THAT(qxctl("migrate", "101").err, HasSubstr("no command 'migrate' (see"));
    const ToolResult option = qxctl("stop", "--fsat", "101");
    EXPECT_EQ(option.status, 2);
    EXPECT_EQ(option.err,
              "qxctl: 'stop' has no option '--fsat', did you mean '--fast'? (see qxctl --help)\n");
    EXPECT_THAT(qxctl("start", "--skip-lock", "101").err, HasSubstr("mean '--skiplock'?"));
    EXPECT_EQ(qxctl("--version").status, 0);
    EXPECT_THAT(qxctl("--version").out, StartsWith("qxctl 1."));
  });
}

TEST(Qxctl, StartsAndStopsSeveralOnlyInPlaceOfOne) {
  ScratchHost().file(kConf, "ONBOOT=yes\n").run([] {
    EXPECT_EQ(qxctl("start").status, 2);
    EXPECT_EQ(qxctl("start", "101", "--onboot").status, 2);
    EXPECT_EQ(qxctl("stop", "101", "--all").status, 2);
    EXPECT_EQ(qxctl("stop", "--all").status, 0) << "none runs";
    const ToolResult boot = qxctl("start", "--onboot");
    EXPECT_EQ(boot.status, 14);
    EXPECT_THAT(boot.err, HasSubstr("container 101 has no private area"));
    host::replaceFile(kConf, "ONBOOT=no\n", 0644);
    EXPECT_EQ(qxctl("start", "--onboot").status, 0);
  });
}

TEST(Qxctl, RefusesFewerTasksThanAnInitNeeds) {
  ScratchHost().file(kConf, "").run([] {
    const ToolResult result = qxctl("set", "101", "NUMPROC=5");
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("NUMPROC is '5'"));
    EXPECT_EQ(qxctl("set", "101", "NUMPROC=24:24").status, 0);
  });
}

TEST(Qxctl, LocksWithoutBeingToldAndUnlocksAfterwards) {
  ScratchHost().file(kConf, "").dir("/var/lib/qx/private/101/fs").run([] {
    EXPECT_EQ(qxctl("mount", "101").status, 0);
    EXPECT_EQ(qxctl("destroy", "101").status, 0);
    EXPECT_THAT(host::listDirectory("/run/qx/lock"), IsEmpty());
  });
}

// Each command as a process of its own, all of them at the same time.
TEST(Qxctl, ManyAtOnceAreRefusedByTheLockOrDoTheirWork) {
  ScratchHost().file(kConf, "").file("/var/lib/qx/private/101/fs/bin/sh", "", 0755).run([] {
    const std::map<std::string, std::set<int>> allowed{{"mount", {0, 9}},
                                                       {"umount", {0, 9, 16}},
                                                       {"convert", {0, 9}},
                                                       {"status", {0}},
                                                       {"stop", {0, 9}}};
    std::vector<std::pair<std::string, std::future<ToolResult>>> running;
    for (int round = 0; round < 8; ++round) {
      for (const auto& [verb, codes] : allowed) {
        running.emplace_back(
            verb, std::async(std::launch::async, [verb = verb] { return qxctl(verb, "101"); }));
      }
    }
    for (auto& [verb, future] : running) {
      const ToolResult result = future.get();
      EXPECT_TRUE(allowed.at(verb).contains(result.status)) << verb << " " << result.status;
      EXPECT_EQ(result.status == 0, result.err.empty()) << verb << ": " << result.err;
    }
    EXPECT_THAT(host::listDirectory("/run/qx/lock"), IsEmpty());
    EXPECT_EQ(qxctl("mount", "101").status, 0);
    EXPECT_LE(host::countMountsAt(host::mountPoints(), "/var/lib/qx/root/101"), 1u);
    EXPECT_TRUE(host::exists("/var/lib/qx/root/101/bin/sh"));
    EXPECT_EQ(qxctl("umount", "101").status, 0);
  });
}

TEST(Qxctl, OneOfManyDestroysAndTheOthersFindNothing) {
  ScratchHost().file(kConf, "").file("/var/lib/qx/private/101/fs/bin/sh", "", 0755).run([] {
    std::vector<std::future<ToolResult>> running;
    for (int i = 0; i < 16; ++i) {
      running.push_back(std::async(std::launch::async, [] { return qxctl("destroy", "101"); }));
    }
    int done = 0;
    for (auto& future : running) {
      const ToolResult result = future.get();
      EXPECT_THAT(result.status, testing::AnyOf(0, 9, 14)) << result.err;
      if (result.status == 0) ++done;
    }
    EXPECT_EQ(done, 1);
    EXPECT_FALSE(host::exists("/var/lib/qx/private/101"));
    EXPECT_FALSE(host::exists(kConf));
    EXPECT_THAT(host::listDirectory("/run/qx/lock"), IsEmpty());
  });
}

TEST(Qxctl, HasNoConsoleOfAContainerThatDoesNotRun) {
  ScratchHost().file(kConf, "").run([] {
    const ToolResult result = qxctl("console", "101");
    EXPECT_EQ(result.status, 19);
    EXPECT_EQ(result.err, "qxctl: container 101 is not running\n");
  });
}

TEST(Qxctl, WrongCommandLinesExitWithTwo) {
  ScratchHost().run([] {
    EXPECT_EQ(qxctl().status, 2);
    EXPECT_EQ(qxctl("nonsense", "101").status, 2);
    EXPECT_EQ(qxctl("mount").status, 2);
    EXPECT_EQ(qxctl("mount", "101", "102").status, 2);
    EXPECT_EQ(qxctl("runscript", "101").status, 2);
    const ToolResult id = qxctl("mount", "x1");
    EXPECT_EQ(id.status, 2);
    EXPECT_EQ(id.err,
              "qxctl: invalid container id 'x1': a number from 1 to 2147483644 is expected\n");
  });
}

TEST(Qxctl, HelpTellsCommandsAndExitCodes) {
  ScratchHost().run([] {
    const ToolResult help = qxctl("--help");
    EXPECT_EQ(help.status, 0);
    for (const char* text : {"create", "runscript", "--skiplock", "another process holds",
                             "/etc/sysconfig/qx-scripts/ID.conf", "  16  the container is not"}) {
      EXPECT_THAT(help.out, HasSubstr(text));
    }
    for (const char* name : {"mkqxfs", "qxpkg", "qxquota"}) {
      EXPECT_EQ(tool(name, "--help").status, 0);
      EXPECT_THAT(tool(name, "--help").out, HasSubstr("Usage: "));
    }
  });
}

TEST(Qxctl, StatusAndListSpeakJson) {
  ScratchHost()
      .file(kConf, "HOSTNAME=\"web\"\n")
      .file("/etc/sysconfig/qx-scripts/7.conf", "HOSTNAME=\"b\xff\"\n")
      .file("/var/lib/qx/private/101/fs/bin/sh", "", 0755)
      .run([] {
        qxctl("mount", "101");
        qxctl("convert", "101");
        const auto status = nlohmann::json::parse(qxctl("status", "101", "--json").out);
        EXPECT_EQ(status["ctid"], 101);
        EXPECT_EQ(status["exists"], true);
        EXPECT_EQ(status["mounted"], true);
        EXPECT_EQ(status["running"], false);
        EXPECT_EQ(status["registered"], true);
        EXPECT_EQ(status["registered_from"], "files");
        EXPECT_EQ(status["root"], "/var/lib/qx/root/101");
        EXPECT_EQ(status["hostname"], "web");
        const auto all = nlohmann::json::parse(qxctl("list", "-a", "--json").out);
        ASSERT_EQ(all.size(), 2u);
        EXPECT_EQ(all[0]["ctid"], 7);
        EXPECT_EQ(all[0]["exists"], false);
        EXPECT_EQ(nlohmann::json::parse(qxctl("list", "--json").out).size(), 1u);
      });
}

TEST(Qxctl, ListShowsTheOthersWhenOneFileIsMalformed) {
  ScratchHost()
      .file(kConf, "HOSTNAME=web\n")
      .file("/etc/qx/x", "")
      .file("/etc/sysconfig/qx-scripts/7.conf", "A=(\n")
      .run([] {
        const ToolResult list = qxctl("list", "-a");
        EXPECT_EQ(list.status, 3);
        EXPECT_THAT(
            list.out,
            HasSubstr("       101  no files          no                                web\n"));
        EXPECT_THAT(list.err, HasSubstr("7.conf: line 1: "));
      });
}

TEST(Qxctl, MakesTheSecondNameOfTheConfigurationDirectory) {
  ScratchHost().run([] {
    EXPECT_EQ(qxctl("list").status, 0);
    EXPECT_TRUE(host::isDirectory("/etc/qx/conf"));
  });
}

TEST(Qxctl, CreateFromATemplateAndPackageSync) {
  ScratchHost().file(kConf, "OSTEMPLATE=\".base\"\n").dir("/var/lib/qx/template/base/etc").run([] {
    EXPECT_EQ(tool("qxpkg", "sync_qxpackages", "101").status, 14);
    EXPECT_EQ(qxctl("create", "101").status, 0);
    EXPECT_EQ(qxctl("create", "101").status, 15);
    const ToolResult sync = tool("qxpkg", "sync_qxpackages", "101");
    EXPECT_EQ(sync.status, 0);
    EXPECT_THAT(sync.out, HasSubstr("nothing to synchronise"));
    EXPECT_EQ(tool("qxpkg", "sync_qxpackages").status, 2);
    EXPECT_EQ(tool("qxpkg", "sync_qxpackages", "102").status, 14);
  });
}

TEST(Mkqxfs, RefusesDangerousAndFilledPlaces) {
  ScratchHost().file("/vz/101/x", "").run([] {
    EXPECT_EQ(tool("mkqxfs", "/").status, 3);
    EXPECT_EQ(tool("mkqxfs", "/etc/new").status, 3);
    EXPECT_EQ(tool("mkqxfs", "relative").status, 3);
    EXPECT_EQ(tool("mkqxfs", "").status, 3);
    EXPECT_EQ(tool("mkqxfs").status, 2);
    EXPECT_EQ(tool("mkqxfs", "/vz/101").status, 15);
    EXPECT_EQ(tool("mkqxfs", "/vz/102/").status, 0);
    EXPECT_THAT(host::listDirectory("/vz/102"), ElementsAre("fs"));
  });
}

TEST(Qxquota, ExitCodesAreWhatCallersTest) {
  ScratchHost()
      .file(kConf, "")
      .dir("/var/lib/qx/private/101/fs")
      .file("/etc/sysconfig/qx-scripts/102.conf", "DISK_QUOTA=no\n")
      .dir("/var/lib/qx/private/102/fs")
      .run([] {
        EXPECT_EQ(tool("qxquota", "stat", "101").status, 10);
        EXPECT_EQ(tool("qxquota", "stat", "102").status, 6);
        EXPECT_EQ(tool("qxquota", "stat", "103").status, 11);
        EXPECT_EQ(tool("qxquota", "setlimit2", "101", "-u", "5", "1", "2", "3", "4").status, 0);
        EXPECT_EQ(tool("qxquota", "setlimit2", "101", "-tg", "5", "6").status, 0);
        EXPECT_EQ(tool("qxquota", "setlimit2", "102", "-tg", "5", "6").status, 11);
        EXPECT_EQ(tool("qxquota", "setlimit2", "101", "-u", "5").status, 2);
        const ToolResult table = tool("qxquota", "stat", "101", "-t");
        EXPECT_EQ(table.status, 10);
        EXPECT_THAT(table.out, HasSubstr("group 5 6\n"));
        EXPECT_THAT(table.out, HasSubstr("user 5 0 1 2 0 0 3 4 0\n"));
      });
}

}  // namespace
