// A whole migration with the real workers on one scratch host: the framework
// drives the controller, the proxies and the operators, and fake programs do the
// work.
#include "agent/programs/migration.h"

#include <unistd.h>

#include <filesystem>

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
  void percent(const std::string&, int percent) override { percents.push_back(percent); }
  std::vector<std::string> lines;
  std::vector<int> percents;
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

agent::MigrationResult migrateHere(View& view) {
  const ParamsPtr params = containerParams();
  params->options.services = {{"mysql"}};
  params->options.config->setVERootVar(kVeRoot);
  QXL::QXLConnectionInfo here;
  here.address = "local";
  return agent::migrate(here, params, view, std::make_shared<agent::CancelToken>());
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
