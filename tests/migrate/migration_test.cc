// A whole migration with the real workers on one scratch host: the framework
// drives the controller, the proxies and the operators, and fake programs do the
// work.
#include "agent/programs/migration.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "agent/programs/last_copy.h"
#include "fixtures/local_ends.h"
#include "workers.h"

namespace fs = std::filesystem;
using namespace fixtures;
using namespace test_support;
using testing::ElementsAre;

namespace {

class View : public agent::MigrationView {
 public:
  void stageBegins(const std::string&) override {}
  void stageEnds(const std::string&, int, double) override {}
  void line(const std::string& text) override { lines.push_back(text); }
  void expect(const agent::Outlook&) override {}
  void percent(const std::string&, int percent) override { percents.push_back(percent); }
  void leftOut(const host::CopyReport& report) override { reports.push_back(report); }
  std::vector<std::string> lines;
  std::vector<int> percents;
  std::vector<host::CopyReport> reports;
};

// Server and node at once. The server's rsync sends one line, the node's client
// puts it into the container's root.
ScratchHost bothHosts() {
  ScratchHost host = nodeHost();
  host.tool(kRsync, {.script = "case $1 in\n"
                               "--server) read request; echo \"$request answered\";;\n"
                               // Channels may be sockets, which cannot be opened by a path.
                               "-ESHa) bash -c 'echo request >&$1; read data <&$2;"
                               " echo \"$data\" >> $3/data' - $8 $6 ${10};;\n"
                               "esac"});
  host.dir(kVeRoot);
  host.file("/etc/mtab", "/dev/gone / ext3 rw,usrquota 0 0\n");
  host.tool("/usr/sbin/repquota", {.out = "user quotas\nBlock grace time: 7days; Inode grace "
                                          "time: 7days\n-----\n#5 -- 1 2 3 4 5 6\n"});
  host.tool("/usr/sbin/edquota");
  host.tool("/usr/sbin/qxquota");
  host.tool("/usr/bin/du", {.script = "if [ $# = 2 ]; then echo 5000; else echo 1000; fi"});
  host.tool("/usr/bin/df", {.out = "titles\nfs 9000 1000 8000 1% /\n"});
  host.tool("/etc/init.d/mysql");
  return host;
}

agent::MigrationResult migrateHere(View& view, const agent::CopyRules& rules = {}) {
  const ParamsPtr params = containerParams();
  params->options.services = {{"mysql"}};
  params->options.config->setVERootVar(kVeRoot);
  QXL::QXLConnectionInfo here;
  here.address = "local";
  return agent::migrate(here, params, rules, view, std::make_shared<agent::CancelToken>());
}

// The programs called, with their first arguments, except the versions asked for.
std::vector<std::string> outline(const ScratchHost& host) {
  std::vector<std::string> lines;
  for (const auto& words : host.callWords()) {
    std::string line = fs::path(words[0]).filename();
    for (std::size_t i = 1; i < words.size() && i < 3; ++i) line += " " + words[i];
    if (line.find("--version") == std::string::npos) lines.push_back(line);
  }
  return lines;
}

}  // namespace

TEST(WholeMigration, CallsEveryProgramInOrder) {
  ScratchHost host = bothHosts();
  host.run([&] {
    const LoadedPlugin plugin;
    View view;
    const agent::MigrationResult result = migrateHere(view);
    EXPECT_TRUE(result.succeeded) << result.stage << ": " << result.text;
    auto calls = outline(host);
    // Server and client of one copy start at about the same time.
    for (std::size_t i = 1; i < calls.size(); ++i) {
      if (calls[i].find("rsync --server") == 0 && calls[i - 1].find("rsync -ESHa") == 0) {
        std::swap(calls[i], calls[i - 1]);
      }
    }
    EXPECT_THAT(
        calls,
        ElementsAre("mkqxfs /var/lib/qx/private/101", "qxctl --skiplock mount", "du -s /",
                    "du -s -c", "df /var/lib/qx/root/101", "repquota -un /", "edquota -utf /",
                    "rsync --server --sender", "rsync -ESHa --numeric-ids", "mysql stop",
                    "rsync --server --sender", "rsync -ESHa --numeric-ids", "qxquota stat 101",
                    "qxquota stat 101", "qxquota stat 101", "qxquota setlimit2 101",
                    "qxquota setlimit2 101", "qxquota setlimit2 101", "qxctl --skiplock runscript",
                    "qxctl --skiplock umount", "qxctl --skiplock convert"));
    EXPECT_EQ(readFile(std::string(kVeRoot) + "/data"), "request answered\nrequest answered\n");
    EXPECT_THAT(view.percents, ElementsAre(100, 100));
    EXPECT_THAT(view.lines,
                ElementsAre("Disk usage: required 3M, available 8M", "Dumping quota...",
                            "Starting rsync...", "Stopping services...", "Starting rsync..."));
    EXPECT_FALSE(fs::exists(kLock));
  });
}

// The node's end says nothing of it.
TEST(WholeMigration, ContainerThatIsNotRegisteredIsNoSuccess) {
  for (const bool registered : {false, true}) {
    ScratchHost host = bothHosts();
    host.dir(kArea);
    if (registered) host.file(std::string(kArea) + "/.qx-registered", "");
    host.run([&] {
      const LoadedPlugin plugin;
      View view;
      const agent::MigrationResult result = migrateHere(view, {"", "101", false, {kVeRoot, kArea}});
      EXPECT_EQ(result.succeeded, registered) << result.text;
      EXPECT_EQ(result.unsettled, !registered);
      EXPECT_EQ(result.stage, registered ? "" : "checkContainer");
      const auto calls = outline(host);
      const bool startedAgain = std::find(calls.begin(), calls.end(), "mysql start") != calls.end();
      EXPECT_EQ(startedAgain, !registered);
      if (registered) return;
      EXPECT_EQ(result.text,
                "the container could not be registered: there is no "
                "/var/lib/qx/private/101/.qx-registered; the node's disk may be full");
    });
  }
}

// As bothHosts(); the client reports what the file /reports/N holds of its Nth run.
ScratchHost reportingHosts() {
  ScratchHost host = bothHosts();
  host.tool(kRsync, {.script = "case $1 in\n"
                               "--server) read request; echo answered;;\n"
                               "-ESHa) bash -c 'echo request >&$1; read data <&$2' - $8 $6\n"
                               "echo >>/reports/runs\n"
                               "cp /reports/$(wc -l </reports/runs) $QX_RSYNC_REPORT;;\n"
                               "esac"});
  return host;
}

const char kPartial[] = "2\n/a\tcannot be read on the server: Input/output error\n/b\twhy\n";

// What comes of a migration whose copies have these reports: the first one, the second, and
// that when it is made once more. One without a text has no report.
struct Reported {
  View view;
  agent::MigrationResult result;
};

void migrateReporting(ScratchHost& host, const std::vector<const char*>& reports,
                      bool acceptPartial, const std::function<void(const Reported&)>& examine) {
  host.dir("/reports").run([&] {
    for (std::size_t i = 0; i < reports.size(); ++i) {
      if (reports[i]) std::ofstream("/reports/" + std::to_string(i + 1)) << reports[i];
    }
    const LoadedPlugin plugin;
    const agent::CopyReportFile file;
    Reported found;
    found.result = migrateHere(found.view, {file.path(), "101", acceptPartial});
    examine(found);
  });
}

TEST(WholeMigration, IncompleteSecondCopyIsMadeOnceMore) {
  ScratchHost host = reportingHosts();
  // What is left out of the first copy matters to nobody.
  migrateReporting(host, {kPartial, kPartial, "0\n"}, false, [](const Reported& found) {
    EXPECT_TRUE(found.result.succeeded) << found.result.stage << ": " << found.result.text;
    EXPECT_TRUE(found.result.leftOut.isComplete());
    ASSERT_EQ(found.view.reports.size(), 2u);
    EXPECT_EQ(found.view.reports[0].files.size(), 2u);
    EXPECT_TRUE(found.view.reports[1].isComplete());
    EXPECT_EQ(readFile("/reports/runs"), "\n\n\n");
    EXPECT_THAT(found.view.lines, testing::Contains("It is made once more."));
    EXPECT_THAT(found.view.lines, testing::Contains("The second copy is complete now."));
  });
}

TEST(WholeMigration, SecondCopyThatIsIncompleteTwiceFailsAndIsRolledBack) {
  ScratchHost host = reportingHosts();
  migrateReporting(host, {"0\n", kPartial, kPartial}, false, [&](const Reported& found) {
    EXPECT_FALSE(found.result.succeeded);
    EXPECT_EQ(found.result.stage, "checkCopy");
    EXPECT_EQ(found.result.text,
              "2 files are not as they are on the server, although the second copy was made twice. "
              "The first: /a: cannot be read on the server: Input/output error. Mend that, leave "
              "it out with --exclude, or go on without it with --accept-partial; 'qxmigrate show "
              "101' lists what it is");
    EXPECT_EQ(found.result.leftOut.count, 2u);
    EXPECT_EQ(readFile("/reports/runs"), "\n\n\n");
    const auto calls = outline(host);
    EXPECT_THAT(calls, testing::Contains("qxctl --skiplock destroy"));
    EXPECT_THAT(calls, testing::Not(testing::Contains("qxctl --skiplock runscript")));
    EXPECT_FALSE(fs::exists(kLock));
  });
}

TEST(WholeMigration, IncompleteCopyCanBeAccepted) {
  ScratchHost host = reportingHosts();
  migrateReporting(host, {"0\n", kPartial, kPartial}, true, [](const Reported& found) {
    EXPECT_TRUE(found.result.succeeded) << found.result.stage << ": " << found.result.text;
    EXPECT_EQ(found.result.leftOut.count, 2u);
  });
}

TEST(WholeMigration, CopyWithoutAReportIsNotTakenForComplete) {
  ScratchHost host = reportingHosts();
  migrateReporting(host, {"0\n", nullptr, "nonsense"}, false, [](const Reported& found) {
    EXPECT_EQ(found.result.stage, "checkCopy");
    ASSERT_EQ(found.view.reports.size(), 2u);
    EXPECT_THAT(found.view.reports[0].files.at(0).reason, testing::HasSubstr("No such file"));
    EXPECT_THAT(found.view.reports[1].files.at(0).reason,
                testing::HasSubstr("not the report of a copy"));
  });
}

TEST(WholeMigration, FailureRollsTheContainerBack) {
  ScratchHost host = bothHosts();
  host.tool(kQxctl, {.script = "if [ $2 = runscript ]; then echo why >&2; exit 1; fi"});
  host.run([&] {
    const LoadedPlugin plugin;
    View view;
    const agent::MigrationResult result = migrateHere(view);
    EXPECT_FALSE(result.succeeded);
    EXPECT_EQ(result.stage, "tuneDstSrv");
    EXPECT_EQ(result.text,
              "Deserializer command '/usr/sbin/qxctl --skiplock runscript 101 "
              "/etc/sysconfig/qx-scripts/dists/scripts/debian.sh' returned a non-successful "
              "status: 256. Program error output follows:\nwhy\n");
    const auto calls = outline(host);
    EXPECT_THAT(calls, testing::Contains("qxctl --skiplock destroy"));
    EXPECT_FALSE(fs::exists(kLock));
  });
}

TEST(WholeMigration, LockedContainerIsLeftAlone) {
  ScratchHost host = bothHosts();
  host.file(kLock, "1\nother\n");
  host.run([&] {
    const LoadedPlugin plugin;
    View view;
    const agent::MigrationResult result = migrateHere(view);
    EXPECT_FALSE(result.succeeded);
    EXPECT_EQ(result.text, "Unable to lock CT 101 already locked by process #1");
    EXPECT_THAT(outline(host), ElementsAre("qxctl --skiplock umount"));
    EXPECT_EQ(readFile(kLock), "1\nother\n");
  });
}
