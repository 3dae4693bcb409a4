// qxmigrate's measurement and plan of a server whose agent is beside it, on a host of
// the test's own: what they print, write and end with.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "support/scratch_host.h"

namespace {

using test_support::ScratchHost;
using testing::Contains;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char SOCKET[] = "/run/agent.sock";

// Server and node in one. Its shared memory is told in the language that is asked for,
// and in Klingon without.
ScratchHost bothHosts() {
  ScratchHost host;
  host.tool("/usr/bin/ps", {.script = "seq 300"});
  host.tool("/usr/bin/ipcs", {.script = "if [ \"$LC_ALL\" = C ]; then\n"
                                        "echo 'pages allocated 30000'\n"
                                        "else echo 'tenwal nobpu 30000'; fi\n"});
  host.tool("/usr/bin/df",
            {.script = "echo header; echo '/dev/sda1 10000000 4000000 5500000 43% /'"});
  host.tool("/usr/sbin/iptables", {.out = "Chain INPUT\n"}).tool("/usr/sbin/ip");
  host.tool("/usr/local/share/qxlinmigrate/rsync",
            {.out = "rsync  version 3.4.1  protocol version 32\n"});
  host.tool("/usr/local/share/qxlinmigrate/distdetect-common.sh", {.out = "debian-12\n"});
  host.file("/etc/mtab", "").file("/etc/init.d/nginx", "", 0755);
  host.file("/etc/sysconfig/qx-scripts/dists/debian.conf", "[GLOBAL]\nPOST_MIGRATE=debian.sh\n");
  host.file("/etc/sysconfig/qx-scripts/dists/scripts/debian.sh", "");
  host.dir("/var/lib").dir("/run").dir("/var/lock");
  return host;
}

class Agent {
 public:
  // As on a server whose administrator reads another language.
  Agent() : pid_(fork()) {
    if (pid_ == 0) {
      setenv("LC_ALL", "tlh_KX.UTF-8", 1);
      const std::string listen = std::string("unix:") + SOCKET;
      execl(QX_AGENT, "qxagent", "serve", "--listen", listen.c_str(), "--library", QX_LIBRARY,
            static_cast<char*>(nullptr));
      _exit(127);
    }
    for (int i = 0; i < 400 && !std::filesystem::exists(SOCKET); ++i) usleep(50000);
    EXPECT_TRUE(std::filesystem::exists(SOCKET));
  }
  ~Agent() {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

 private:
  pid_t pid_;
};

struct Answer {
  int status = -1;
  std::string out, err;
};

std::string contentsOf(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

// Runs "qxmigrate WORDS".
Answer qxmigrate(const std::string& words) {
  const std::string line =
      std::string(QX_MIGRATE) + " " + words + " >/tmp/out 2>/tmp/err </dev/null";
  const int status = system(line.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contentsOf("/tmp/out"),
          contentsOf("/tmp/err")};
}

// Runs "qxmigrate COMMAND SOURCE OPTIONS".
Answer qxmigrate(const std::string& command, const std::string& options) {
  return qxmigrate(command + " unix:" + SOCKET + " --library " + QX_LIBRARY + " " + options);
}

Answer plan(const std::string& options) {
  return qxmigrate("plan", "--duration 0 --ctid 101 --hostname web --ip 192.0.2.10/24 " + options);
}

// With room for whatever the machine's folders hold.
constexpr char ROOM[] = "--diskspace 900000000:900000000 --diskinodes 900000000:900000000 ";

TEST(Programs, MeasuringPrintsAndWritesAConfigurationThatAPlanTakes) {
  bothHosts().run([] {
    const Agent agent;
    const Answer page = qxmigrate("measure", "--duration 0 --output /tmp/limits.conf");
    EXPECT_EQ(page.status, 0) << page.err;
    EXPECT_THAT(page.out, HasSubstr("  distribution    debian-12\n"));
    EXPECT_THAT(page.out, HasSubstr("  numproc           300            300            300\n"));
    const std::string written = contentsOf("/tmp/limits.conf");
    EXPECT_THAT(written, HasSubstr("NUMPROC=\"300:300\"\n"));
    EXPECT_THAT(written, HasSubstr("DISKSPACE=\"4000000:4400000\"\n"));

    // Renaming a file over a device would be the end of it.
    const Answer device = qxmigrate("measure", "--duration 0 --output /tmp");
    EXPECT_EQ(device.status, 64);
    EXPECT_EQ(device.err, "qxmigrate: --output '/tmp' is not a file\n");

    const Answer scaled =
        qxmigrate("measure", "--duration 0 --proc-scale 2 --disk-scale 0.5 --json");
    EXPECT_EQ(scaled.status, 0) << scaled.err;
    const auto value = nlohmann::json::parse(scaled.out);
    EXPECT_EQ(value["configuration"]["NUMPROC"], "600:600");
    EXPECT_EQ(value["configuration"]["DISKSPACE"], "2000000:2200000");
    EXPECT_EQ(value["measurement"]["numproc"], 300);
    // What programs print is not translated for the agent.
    EXPECT_EQ(value["measurement"]["shmpages"], 30000);

    std::ofstream("/tmp/limits.conf") << written << "NUMPROC=\"777:888\"\n";
    const Answer planned = plan("--json --config /tmp/limits.conf");
    EXPECT_EQ(nlohmann::json::parse(planned.out)["configuration"]["NUMPROC"], "777:888");
  });
}

// The list of open files is cut off where it is too long for a command line.
TEST(Programs, APlanSaysWhatTheMeasuringHasNotSeen) {
  const int files = open("/dev/fuse", O_RDWR | O_CLOEXEC);
  ASSERT_GE(files, 0);
  ScratchHost host = bothHosts();
  host.tool("/usr/bin/ls", {.status = 1, .err = "Argument list too long"});
  host.tool("/usr/sbin/iptables", {.status = 1}).tool("/usr/sbin/ip", {.status = 1});
  // As the real one, it asks whatever is mounted.
  host.tool("/usr/bin/df", {.script = "stat -f /mnt/dead >/dev/null\n"
                                      "echo header; echo '/dev/sda1 10000000 4000000 5500000'\n"});
  host.dir("/mnt/dead");
  host.run([files] {
    const std::string options =
        "fd=" + std::to_string(files) + ",rootmode=40000,user_id=0,group_id=0";
    ASSERT_EQ(mount("files:/", "/mnt/dead", "fuse.sshfs", 0, options.c_str()), 0);
    const Agent agent;
    const Answer answer = plan("--json");
    EXPECT_THAT(answer.out, HasSubstr("open files, and the usual way of counting saw 0 of them"));
    EXPECT_THAT(answer.out, HasSubstr("firewall rules and routes could not be counted"));
    EXPECT_THAT(answer.out, HasSubstr("What is mounted at '/mnt/dead' does not answer"));
    // The agent's threads that wait there are let go: nothing else ends them, not even the
    // look for leaks.
    EXPECT_EQ(umount2("/mnt/dead", MNT_FORCE | MNT_DETACH), 0) << strerror(errno);
  });
  close(files);
}

TEST(Programs, APlanWithoutARsyncIsBlocked) {
  ScratchHost host = bothHosts();
  host.tool("/usr/local/share/qxlinmigrate/rsync",
            {.status = 14, .err = "rsync: stock rsync is nowhere; install the package rsync\n"});
  host.run([] {
    const Agent agent;
    const Answer answer = plan(ROOM);
    EXPECT_EQ(answer.status, 2);
    EXPECT_THAT(answer.out, HasSubstr("The node cannot receive: "));
    EXPECT_THAT(answer.out, HasSubstr("install the package rsync"));
    const Answer migration =
        qxmigrate("", "--ctid 101 --no-measure --force --distribution debian-12");
    EXPECT_EQ(migration.status, 1);
    EXPECT_THAT(migration.err, StartsWith("qxmigrate: the node cannot receive: "));
    EXPECT_FALSE(std::filesystem::exists("/var/lib/qx"));
  });
}

TEST(Programs, APlanEndsWithItsVerdict) {
  bothHosts().run([] {
    const Agent agent;
    const Answer page = plan(ROOM);
    // The machine may have little room, or files of large ids: all but a block.
    EXPECT_THAT(page.out, StartsWith("Plan: unix:/run/agent.sock becomes container 101."));
    const Answer json = plan(std::string("--json ") + ROOM);
    EXPECT_EQ(json.status, page.status);
    const auto value = nlohmann::json::parse(json.out);
    const std::string verdict = value["verdict"];
    EXPECT_EQ(page.status, verdict == "ready" ? 0 : verdict == "warnings" ? 1 : 2) << page.out;

    std::ofstream("/etc/sysconfig/qx-scripts/101.conf") << "HOSTNAME=\"other\"\n";
    const Answer warned = plan(ROOM);
    EXPECT_EQ(warned.status, 1) << warned.out;
    EXPECT_THAT(warned.out, HasSubstr("warning  Container 101 has a configuration file already"));
    EXPECT_THAT(warned.out, HasSubstr("\nVerdict: ready with warnings\n"));

    const Answer blocked = plan("--stop-service no-such");
    EXPECT_EQ(blocked.status, 2);
    EXPECT_THAT(blocked.out,
                HasSubstr("\nBLOCKED  Service no-such has no script in the server's /etc/init.d."));
    EXPECT_THAT(blocked.out, HasSubstr("\nVerdict: blocked\n"));
    EXPECT_THAT(plan("--stop-service nginx").out, Not(HasSubstr("no script in")));
  });
}

TEST(Programs, WhatHappensIsAppendedToALogFile) {
  bothHosts().run([] {
    const Agent agent;
    std::ofstream("/tmp/log") << "before\n";
    const Answer shown = plan("--stop-service no-such --color always --log-file /tmp/log");
    EXPECT_THAT(shown.out, HasSubstr("\n\033[1;31mBLOCKED\033[0m  Service no-such has no"));
    EXPECT_THAT(shown.out, HasSubstr("\n\033[1;31mVerdict: blocked\033[0m\n"));
    const std::string log = contentsOf("/tmp/log");
    const std::string time = "\n20..-..-..T..:..:..Z ";
    EXPECT_THAT(log,
                testing::ContainsRegex("^before" + time + "qxmigrate begins: unix:/run/agent"));
    EXPECT_THAT(log, testing::ContainsRegex(time + "measure begins"));
    EXPECT_THAT(log, testing::ContainsRegex(time + "measure done, "));
    EXPECT_THAT(log, testing::ContainsRegex(time + "BLOCKED  Service no-such has no script"));
    EXPECT_THAT(log, testing::ContainsRegex(time + "qxmigrate ends with 2\n$"));

    const Answer quiet = qxmigrate(
        "", "--duration 0 --ctid 101 --distribution fancix-3 --force -q --log-file /tmp/new");
    EXPECT_EQ(quiet.status, 1);
    EXPECT_THAT(quiet.out, Not(HasSubstr("connect")));
    EXPECT_THAT(contentsOf("/tmp/new"), HasSubstr("Z connect begins\n"));
    const std::string complaint = quiet.err.substr(0, quiet.err.find('\n'));
    EXPECT_THAT(contentsOf("/tmp/new"), HasSubstr("Z " + complaint + "\n"));
    using std::filesystem::perms;
    EXPECT_EQ(std::filesystem::status("/tmp/new").permissions(),
              perms::owner_read | perms::owner_write);

    const Answer nowhere = plan("--log-file /no/such/log");
    EXPECT_EQ(nowhere.status, 3);
    EXPECT_EQ(nowhere.err,
              "qxmigrate: cannot write the log '/no/such/log': No such file or directory\n");
    EXPECT_EQ(plan("--color purple").status, 64);
  });
}

TEST(Programs, TheFirstHelpIsAScreenAndNamesEveryOption) {
  ScratchHost().run([] {
    const auto help = [](const std::string& option) {
      EXPECT_EQ(system((std::string(QX_MIGRATE) + " " + option + " >/tmp/out").c_str()), 0);
      return contentsOf("/tmp/out");
    };
    const std::string screen = help("--help");
    size_t lines = 0;
    std::istringstream stream(screen);
    for (std::string line; std::getline(stream, line); ++lines) EXPECT_LE(line.size(), 80) << line;
    EXPECT_LE(lines, 24);
    size_t options = 0;
    std::istringstream all(help("--help-all"));
    for (std::string line; std::getline(all, line);) {
      const size_t name = line.find("--");
      if (!line.starts_with("  -") || name == line.npos) continue;
      ++options;
      EXPECT_THAT(screen, HasSubstr(line.substr(name, line.find(' ', name) - name)));
    }
    EXPECT_GT(options, 30);
    EXPECT_THAT(help("plan --help"), HasSubstr("  --stop-service TEXT ..."));
  });
}

TEST(Programs, AMigrationThatIsBlockedTouchesNothing) {
  bothHosts().run([] {
    const Agent agent;
    const Answer answer = qxmigrate("", "--duration 0 --ctid 101 --distribution fancix-3");
    EXPECT_EQ(answer.status, 2);
    EXPECT_THAT(answer.err, HasSubstr("BLOCKED  The node has no script for fancix-3"));
    EXPECT_THAT(answer.err, EndsWith("nothing was changed; --force migrates all the same\n"));
    EXPECT_FALSE(std::filesystem::exists("/var/lib/qx/private/101"));
    EXPECT_FALSE(std::filesystem::exists("/etc/sysconfig/qx-scripts/101.conf"));
    // Forced, it gets as far as what the plan foretold.
    const Answer forced = qxmigrate("", "--duration 0 --ctid 101 --distribution fancix-3 --force");
    EXPECT_EQ(forced.status, 1);
    EXPECT_THAT(forced.err, HasSubstr("stage "));
  });
}

TEST(Programs, TheVersionsOfAllThatWorksTogetherAreTold) {
  ScratchHost().run([] {
    // Not where it was built, since it finds there what was built with it.
    std::filesystem::create_directories("/usr/local/sbin");
    std::filesystem::copy_file(QX_MIGRATE, "/usr/local/sbin/qxmigrate");
    const std::string line = "/usr/local/sbin/qxmigrate --version >/tmp/out 2>/tmp/err";
    EXPECT_EQ(system(line.c_str()), 0);
    EXPECT_THAT(contentsOf("/tmp/out"), StartsWith("qxmigrate  1."));
    EXPECT_THAT(contentsOf("/tmp/out"), HasSubstr("\nplug-in    missing: "));
    EXPECT_THAT(contentsOf("/tmp/out"), HasSubstr("\nqxagent    missing: "));
    const std::filesystem::path lib = "/usr/local/lib";
    std::filesystem::create_directories(lib);
    std::filesystem::copy_file(QX_LIBRARY, lib / "libqxlinmigrate.so");
    const std::filesystem::path share = "/usr/local/share/qxlinmigrate";
    std::filesystem::create_directories(share);
    std::ofstream(share / "bundle.tar.gz") << "archive";
    std::ofstream(share / "bundle.sha256") << std::string(64, 'a') << "\n";
    std::ofstream(share / "bundle.versions") << "qxagent 1.0.7\nrsync 3.2.7\n";
    EXPECT_EQ(system(line.c_str()), 0);
    EXPECT_THAT(contentsOf("/tmp/out"), HasSubstr("/usr/local/lib/libqxlinmigrate.so\n"));
    EXPECT_THAT(contentsOf("/tmp/out"), Not(HasSubstr("missing")));
    EXPECT_THAT(contentsOf("/tmp/out"), HasSubstr("\nqxagent    1.0.7     /usr/local/share/"));
    EXPECT_THAT(contentsOf("/tmp/out"), HasSubstr("\nrsync      3.2.7     /usr/local/share/"));
  });
}

TEST(Programs, AMigrationIsShownAsAPage) {
  ScratchHost host;
  host.dir("/var/lib/qx/migrations", 0700).dir("/pages");
  host.file("/var/lib/qx/migrations/101-20261121T222125Z.json", contentsOf(QX_JOURNAL), 0600);
  host.file("/pages/old.html", "old").symlink("/pages/link.html", "old.html");
  host.run([] {
    umask(027);
    const Answer page = qxmigrate("show 101 --html -");
    EXPECT_EQ(page.status, 0) << page.err;
    EXPECT_THAT(page.out, StartsWith("<!DOCTYPE html>"));
    EXPECT_THAT(page.out, EndsWith("</html>\n"));
    // By its name, too; what is there is replaced, and the umask decides who may read it.
    const Answer file = qxmigrate("show 101-20261121T222125Z --html /pages/old.html");
    EXPECT_EQ(file.status, 0) << file.err;
    EXPECT_EQ(file.out, "");
    EXPECT_EQ(contentsOf("/pages/old.html"), page.out);
    EXPECT_EQ(std::filesystem::status("/pages/old.html").permissions(),
              std::filesystem::perms(0640));
    for (const char* place : {"/pages/link.html", "/pages", "/dev/null"}) {
      const Answer refused = qxmigrate(std::string("show 101 --html ") + place);
      EXPECT_EQ(refused.status, 64);
      EXPECT_EQ(refused.err, std::string("qxmigrate: --html '") + place + "' is not a file\n");
    }
    const Answer nowhere = qxmigrate("show 101 --html /none/page.html");
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_THAT(nowhere.err, StartsWith("qxmigrate: cannot write /none/page.html: "));
    EXPECT_EQ(qxmigrate("show 102 --html /pages/none.html").status, 1);
    EXPECT_FALSE(std::filesystem::exists("/pages/none.html"));
    EXPECT_EQ(
        system((std::string(QX_MIGRATE) + " show 101 --html - >/dev/full 2>/tmp/err").c_str()),
        1 << 8);
    EXPECT_THAT(contentsOf("/tmp/err"), HasSubstr("cannot write to standard output"));
  });
}

TEST(Programs, WithoutAServerThereIsNoPlan) {
  bothHosts().run([] {
    EXPECT_EQ(plan("").status, 3);
    EXPECT_EQ(qxmigrate("measure", "").status, 1);
    EXPECT_EQ(qxmigrate("measure", "--duration -1").status, 64);
    EXPECT_EQ(qxmigrate("measure", "--proc-scale 0").status, 64);
    EXPECT_EQ(qxmigrate("measure", "--interval 0").status, 64);
    // What a migration is told has no meaning for a command.
    const Answer mixed = qxmigrate("--force plan", "--ctid 101");
    EXPECT_EQ(mixed.status, 64);
    EXPECT_THAT(mixed.err, HasSubstr("--force"));
    EXPECT_EQ(qxmigrate("plan", "--ctid 101 --force").status, 64);
    const Answer misspelt = qxmigrate("paln", "--ctid 101");
    EXPECT_EQ(misspelt.status, 64);
    EXPECT_EQ(misspelt.err,
              "qxmigrate: there is no command 'paln', did you mean 'plan'? (see qxmigrate "
              "--help)\n");
    EXPECT_THAT(qxmigrate("plan", "--ctid 101 --durations 3").err,
                HasSubstr("'plan' has no option '--durations', did you mean '--duration'?"));
    const Answer bare = qxmigrate("", "");
    EXPECT_EQ(bare.status, 64);
    EXPECT_THAT(bare.err, HasSubstr("--ctid is required"));
  });
}

}  // namespace
