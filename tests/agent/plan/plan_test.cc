// Plans: facts in, findings and verdict out.

#include "agent/plan/amounts.h"
#include "agent/plan/make_plan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "agent/plan/plan_json.h"
#include "agent/plan/plan_text.h"

namespace {

using agent::Severity;
using agent::Verdict;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr long long gib = 1LL << 30;

// A server that nothing speaks against.
agent::PlanFacts goodFacts() {
  agent::PlanFacts facts;
  facts.source = "root@old";
  facts.ctid = 101;
  facts.measurement.numproc = 18;
  facts.measurement.diskspace = 2097152;
  facts.measurement.addresses = {"192.0.2.11"};
  facts.measurement.excludes = {{"/dev/*", false}};
  agent::SurveyedFileSystem root{"/dev/sda1", "/", "ext4", "rw"};
  root.copied = root.mounted = root.counted = true;
  root.bytes = 2 * gib;
  root.files = 50000;
  facts.survey.fileSystems = {root};
  facts.survey.scanComplete = true;
  facts.survey.systemdVersion = 252;
  facts.survey.initScripts = {"nginx", "ssh"};
  facts.node.privateArea = "/var/lib/qx/private/101";
  facts.node.freeBytes = 100 * gib;
  facts.node.freeInodes = 1000000;
  facts.node.distributionScript = "/dists/scripts/debian.sh";
  facts.node.distributionScriptExists = true;
  facts.node.distributions = {"debian", "ubuntu"};
  facts.node.cgroupV2 = true;
  facts.node.hasGateway = true;
  facts.config = {{"HOSTNAME", "old"},
                  {"NETIF", "ifname=eth0,ip=192.0.2.50/24"},
                  {"DISTRIBUTION", "debian-12"},
                  {"NUMPROC", "240:240"},
                  {"DISKSPACE", "2097152:2306867"},
                  {"DISKINODES", "50000:55000"}};
  return facts;
}

void expectFinding(const agent::PlanFacts& facts, Severity severity, const std::string& text) {
  const agent::Plan plan = agent::makePlan(facts);
  EXPECT_THAT(plan.findings, Contains(AllOf(Field(&agent::Finding::severity, severity),
                                            Field(&agent::Finding::text, text))));
  const Verdict expected = severity == Severity::kBlock     ? Verdict::kBlocked
                           : severity == Severity::kWarning ? Verdict::kReadyWithWarnings
                                                            : Verdict::kReady;
  EXPECT_EQ(plan.verdict, expected);
}

TEST(Plan, NothingAgainstItIsReady) {
  const agent::Plan plan = agent::makePlan(goodFacts());
  EXPECT_THAT(plan.findings, IsEmpty());
  EXPECT_EQ(plan.verdict, Verdict::kReady);
  EXPECT_EQ(plan.bytes, 2 * gib);
  EXPECT_EQ(plan.files, 50000);
}

TEST(Plan, AContainerThatExistsOrIsLockedBlocks) {
  agent::PlanFacts facts = goodFacts();
  facts.node.containerExists = true;
  expectFinding(facts, Severity::kBlock,
                "Container 101 exists on this node already: give another --ctid.");
  facts = goodFacts();
  facts.node.lockHolder = "process 7";
  expectFinding(facts, Severity::kBlock, "Container 101 is locked by process 7: wait for its end.");
}

TEST(Plan, WhatAnInterruptedMigrationLeftIsToldOfAndBlocksNothing) {
  agent::PlanFacts facts = goodFacts();
  facts.node.containerExists = facts.node.areaExists = facts.node.configExists = true;
  facts.node.interruption = "left by one";
  expectFinding(facts, Severity::kWarning, "Container 101 was left by one.");
  EXPECT_EQ(agent::makePlan(facts).findings.size(), 1U);
}

TEST(Plan, RemainsOfAnotherContainerAreToldOf) {
  agent::PlanFacts facts = goodFacts();
  facts.node.areaExists = true;
  expectFinding(facts, Severity::kWarning,
                "The private area /var/lib/qx/private/101 exists already: the copy goes into it, "
                "over what it holds.");
  facts = goodFacts();
  facts.node.configExists = true;
  expectFinding(facts, Severity::kWarning,
                "Container 101 has a configuration file already: it will be replaced.");
  facts = goodFacts();
  facts.node.keptExists = true;
  expectFinding(facts, Severity::kNote,
                "The migration goes on from what an earlier one has copied, "
                "/var/lib/qx/private/101.migrated.");
  facts.node.keptIsRemoved = true;
  expectFinding(
      facts, Severity::kNote,
      "What an earlier migration has copied, /var/lib/qx/private/101.migrated, is removed "
      "first: what that frees is not counted as free.");
  // All of that is the container that exists.
  facts.node.containerExists = facts.node.areaExists = facts.node.configExists = true;
  EXPECT_EQ(agent::makePlan(facts).findings.size(), 1U);
}

TEST(Plan, ARsyncThatCannotBeTrustedBlocksUnlessTheAdministratorSaysSo) {
  agent::PlanFacts facts = goodFacts();
  facts.node.rsync = {"rsync 3.2.7 is old", false};
  expectFinding(facts, Severity::kBlock, "The node cannot receive: rsync 3.2.7 is old.");
  facts.node.rsync.tolerable = true;
  expectFinding(facts, Severity::kWarning,
                "The node receives with an rsync that should not be trusted (OLD_RSYNC): "
                "rsync 3.2.7 is old.");
}

TEST(Plan, TheReserveOfTheDiskIsNotThereToBeFilled) {
  agent::PlanFacts facts = goodFacts();
  facts.node.freeBytes = 4 * gib;
  facts.node.reservedBytes = 3 * gib;
  expectFinding(facts, Severity::kBlock,
                "Not enough disk space on the node: 2.0 GiB are needed, 4.0 GiB are free, of which "
                "3.0 GiB are its RESERVE. Make room, or leave out more with --exclude.");
  facts = goodFacts();
  facts.node.reservedInodes = facts.node.freeInodes + 1;
  expectFinding(facts, Severity::kBlock,
                "Not enough inodes on the node: 50,000 are needed, 1,000,000 are free, of which "
                "1,000,001 are its RESERVE. Make room, or leave out more with --exclude.");
}

TEST(Plan, APlaceThatIsAnotherContainersBlocks) {
  agent::PlanFacts facts = goodFacts();
  facts.node.placeProblem = "VE_PRIVATE is '/data/7/x': '/data/7' is container 7's";
  expectFinding(facts, Severity::kBlock,
                "The node refuses a place: VE_PRIVATE is '/data/7/x': '/data/7' is container 7's.");
}

agent::SurveyedQuotas quotasOf(const std::string& mountPoint, long long users, long long groups) {
  agent::SurveyedQuotas quotas;
  quotas.mountPoint = mountPoint;
  quotas.users = users;
  quotas.groups = groups;
  quotas.userBlockGrace = quotas.groupBlockGrace = 5400;
  quotas.userInodeGrace = quotas.groupInodeGrace = 259200;
  return quotas;
}

TEST(Plan, DiskQuotasThatArriveAreCounted) {
  agent::PlanFacts facts = goodFacts();
  EXPECT_THAT(agent::planText(facts, agent::makePlan(facts)), Not(HasSubstr("Disk quotas")));
  facts.node.storage = "ext4";
  facts.config["DISKSPACE"] = "4194304:4194304";
  facts.survey.quotas = {quotasOf("/", 1200, 3)};
  const agent::Plan plan = agent::makePlan(facts);
  EXPECT_THAT(plan.findings, IsEmpty());
  EXPECT_THAT(agent::planText(facts, plan),
              HasSubstr("Disk quotas that arrive\n"
                        "  of users        1,200 with limits\n"
                        "  of groups       3 with limits\n"
                        "  grace periods   1 hour 30 minutes for blocks, 3 days for inodes\n"));
}

TEST(Plan, DiskQuotasThatDoNotArriveAreNamed) {
  agent::PlanFacts facts = goodFacts();
  facts.node.storage = "ext4";
  facts.config["DISKSPACE"] = "4194304:4194304";
  facts.survey.quotas = {quotasOf("/home", 0, 1)};
  expectFinding(facts, Severity::kWarning,
                "The disk quotas of /home (1 group with limits) do not arrive: the container has "
                "one file system, with those of /.");
  facts.survey.quotas = {quotasOf("/", 0, 2)};
  facts.survey.quotas[0].groupInodeGrace = 60;
  expectFinding(facts, Severity::kWarning,
                "The grace periods of groups (1 hour 30 minutes for blocks, 1 minute for inodes) "
                "do not arrive: groups get those of users.");
  facts.survey.quotas = {quotasOf("/", 2, 0)};
  facts.survey.quotas[0].unlisted = 7;
  expectFinding(facts, Severity::kWarning,
                "The limits of 7 more users and groups that the report leaves out do not arrive: "
                "they are too many.");
  facts.survey.quotas = {quotasOf("/", 2, 0)};
  facts.survey.quotas[0].accountsOnly = true;
  expectFinding(facts, Severity::kNote,
                "The server's kernel cannot list its disk limits: limits of users and groups that "
                "own nothing and have no account are not known, and do not arrive.");
  facts.survey.quotas = {quotasOf("/", 2, 0)};
  facts.node.storage = "directory";
  expectFinding(facts, Severity::kWarning,
                "Disk limits of users and groups are kept with the container and not enforced: "
                "the node's STORAGE is 'directory', and only ext4 can.");
  facts.node.quotasOff = true;
  expectFinding(
      facts, Severity::kBlock,
      "The server's disk quotas are on, and the container takes none: DISK_QUOTA is 'no' "
      "on the node. Take it out there, or turn the server's quotas off (quotaoff -ug /).");
}

TEST(Plan, LimitsOfOwnersOfNothingAreAdded) {
  agent::PlanFacts facts = goodFacts();
  facts.node.storage = "ext4";
  facts.config["DISKSPACE"] = "4194304:4194304";
  facts.survey.quotas = {quotasOf("/", 3, 2)};
  facts.survey.quotas[0].unreported = {{false, 2201, 1, 2, 3, 4}, {true, 50, 1, 2, 3, 4}};
  expectFinding(facts, Severity::kNote,
                "The server's report of its quotas leaves out the limits of 1 user and 1 group, "
                "first user 2201, mostly because they own nothing: they are added when the copy "
                "is complete.");
}

TEST(Period, IsToldInItsLargestUnits) {
  EXPECT_EQ(agent::periodText(0), "0 seconds");
  EXPECT_EQ(agent::periodText(1), "1 second");
  EXPECT_EQ(agent::periodText(604800), "7 days");
  EXPECT_EQ(agent::periodText(90061), "1 day 1 hour 1 minute 1 second");
}

TEST(Plan, SaysWhoseIdsTheContainerWillHaveAndWhy) {
  agent::PlanFacts facts = goodFacts();
  facts.node.ids = 65536;
  facts.node.whyIds = "this host can";
  expectFinding(facts, Severity::kNote,
                "The container will be unprivileged: its root is nobody on the node (this host "
                "can).");
  facts.node.ids = 0;
  facts.node.whyIds = "UNPRIVILEGED=no";
  expectFinding(facts, Severity::kNote,
                "The container will be privileged: its root can become the node's "
                "(UNPRIVILEGED=no).");
  facts.node.whyIds = "no user namespaces";
  expectFinding(facts, Severity::kWarning,
                "The container will be privileged: its root can become the node's (no user "
                "namespaces).");
}

TEST(Plan, AnImageIsAsLargeAsItsLimits) {
  agent::PlanFacts facts = goodFacts();
  facts.node.storage = "ext4";
  // It has inodes of its own.
  facts.node.freeInodes = 10;
  facts.config["DISKSPACE"] = "2621500:2621500";
  EXPECT_EQ(agent::makePlan(facts).verdict, Verdict::kReady);
  facts.config["DISKSPACE"] = "1000:2000";
  expectFinding(facts, Severity::kBlock,
                "The container's disk limit is 2.0 MiB, and 2.0 GiB are copied: give --diskspace, "
                "such as 2097152:2306862.");
  facts.config["DISKSPACE"] = "unlimited:unlimited";
  expectFinding(
      facts, Severity::kBlock,
      "The node keeps containers in ext4 images (STORAGE): give a size with --diskspace.");
  facts = goodFacts();
  facts.node.storage = "ext4";
  facts.config["DISKSPACE"] = "2621500:2621500";
  facts.config["DISKINODES"] = "1000:49999";
  expectFinding(facts, Severity::kBlock,
                "The container's limit is 49,999 inodes, and 50,000 files are copied: give "
                "--diskinodes, such as 50000:55000.");
}

TEST(Plan, AnImageThatIsNearlyFullFromTheStartWarns) {
  agent::PlanFacts facts = goodFacts();
  facts.node.storage = "ext4";
  facts.config["DISKINODES"] = "100000:100000";
  facts.config["DISKSPACE"] = "2356296:2356296";  // 89 % full
  expectFinding(facts, Severity::kWarning,
                "The container's disk is more than 80 % full from the start, 2.0 GiB of 2.2 GiB: "
                "give --diskspace, such as 2726230:2726230.");
  facts.config["DISKSPACE"] = "2621500:2621500";
  EXPECT_THAT(agent::makePlan(facts).findings, IsEmpty());
  // A limit that is merely a number is used up or not.
  facts.node.storage = "directory";
  facts.config["DISKSPACE"] = "2356296:2356296";
  EXPECT_THAT(agent::makePlan(facts).findings, IsEmpty());
}

TEST(Plan, MoreMemoryThanTheNodeHasWarns) {
  agent::PlanFacts facts = goodFacts();
  facts.node.memoryBytes = 4 * gib;
  facts.config["SLMMEMORYLIMIT"] = "4294967297:4294967297";
  expectFinding(facts, Severity::kWarning,
                "The container is promised 4.0 GiB of memory, and the node has 4.0 GiB.");
  facts.config["SLMMEMORYLIMIT"] = "4294967296:4294967296";
  EXPECT_THAT(agent::makePlan(facts).findings, IsEmpty());
}

TEST(Plan, LessMemoryThanTheServerUsesWarns) {
  agent::PlanFacts facts = goodFacts();
  facts.measurement.privvmpages = 1310720;
  facts.config["SLMMEMORYLIMIT"] = "1073741824:1073741824";
  expectFinding(facts, Severity::kWarning,
                "The server's programs use 5.0 GiB of memory of their own, and the container's "
                "limit is 1.0 GiB: some of them would be killed. Give a larger SLMMEMORYLIMIT in "
                "--config.");
  facts.config["SLMMEMORYLIMIT"] = "5368709120:5368709120";
  EXPECT_THAT(agent::makePlan(facts).findings, IsEmpty());
}

TEST(Plan, FewerProcessorsThanTheServerHasWarn) {
  agent::PlanFacts facts = goodFacts();
  facts.survey.processors = 8;
  facts.node.processors = 2;
  expectFinding(facts, Severity::kWarning, "The server has 8 processors, and the node has 2.");
  facts.node.processors = 8;
  EXPECT_THAT(agent::makePlan(facts).findings, IsEmpty());
}

TEST(Plan, WhatWasDoneToTheFiguresIsNoted) {
  agent::PlanFacts facts = goodFacts();
  facts.measurement.notes = {"The memory limit is recomputed."};
  expectFinding(facts, Severity::kNote, "The memory limit is recomputed.");
  facts = goodFacts();
  facts.notes = {"The disk limit is raised."};
  expectFinding(facts, Severity::kNote, "The disk limit is raised.");
}

TEST(Plan, SpaceAndInodesBlockWhenShortAndWarnWithoutMargin) {
  agent::PlanFacts facts = goodFacts();
  facts.node.freeBytes = gib;
  expectFinding(
      facts, Severity::kBlock,
      "Not enough disk space on the node: 2.0 GiB are needed, 1.0 GiB are free. Make room, "
      "or leave out more with --exclude.");
  facts.node.freeBytes = 2 * gib;
  expectFinding(
      facts, Severity::kWarning,
      "Hardly any disk space to spare on the node: the copy leaves 0 bytes, less than 10 % of it.");
  facts = goodFacts();
  facts.node.freeInodes = 49999;
  expectFinding(
      facts, Severity::kBlock,
      "Not enough inodes on the node: 50,000 are needed, 49,999 are free. Make room, or leave "
      "out more with --exclude.");
  facts.node.freeInodes = 54999;
  expectFinding(
      facts, Severity::kWarning,
      "Hardly any inodes to spare on the node: the copy leaves 4,999, less than 10 % of it.");
  facts.node.freeInodes = 55000;
  EXPECT_EQ(agent::makePlan(facts).verdict, Verdict::kReady);
  facts.node.freeInodes = -1;
  EXPECT_EQ(agent::makePlan(facts).verdict, Verdict::kReady);
}

TEST(Plan, LimitsBelowWhatIsCopiedWarn) {
  agent::PlanFacts facts = goodFacts();
  facts.config["DISKSPACE"] = "1000:2000";
  expectFinding(facts, Severity::kWarning,
                "The container's disk limit is 2.0 MiB, and 2.0 GiB are copied: give --diskspace, "
                "such as 2097152:2306862.");
  facts = goodFacts();
  facts.config["DISKINODES"] = "1000:49999";
  expectFinding(facts, Severity::kWarning,
                "The container's limit is 49,999 inodes, and 50,000 files are copied: give "
                "--diskinodes, such as 50000:55000.");
  facts.config["DISKINODES"] = "unlimited:unlimited";
  EXPECT_EQ(agent::makePlan(facts).verdict, Verdict::kReady);
}

TEST(Plan, AnAddressFromThePoolNeedsAPool) {
  agent::PlanFacts facts = goodFacts();
  facts.config["NETIF"] = "ifname=eth0,ip=auto";
  facts.node.hasAddressPool = true;
  EXPECT_NE(agent::makePlan(facts).verdict, Verdict::kBlocked);
  facts.node.hasAddressPool = false;
  expectFinding(facts, Severity::kBlock,
                "There are no addresses for --ip auto: set IP_POOL=\"FIRST-LAST/PREFIX\" in "
                "/etc/qx/qx.conf, or give an address.");
}

TEST(Plan, AddressesThatAreNotKnownAreReportedAndNoneIsChosen) {
  agent::PlanFacts facts = goodFacts();
  facts.node.hasAddressPool = true;
  facts.node.addressProblems = {"102.conf: line 3: the closing ' is missing"};
  expectFinding(facts, Severity::kWarning,
                "The addresses of a container are not known, one of them may be in use: 102.conf: "
                "line 3: the closing ' is missing.");
  EXPECT_EQ(agent::makePlan(facts).verdict, Verdict::kReadyWithWarnings);
  facts.config["NETIF"] = "ifname=eth0,ip=auto";
  expectFinding(facts, Severity::kBlock,
                "No address can be chosen for --ip auto, as it is not known which ones are free.");
}

TEST(Plan, AddressesInUseBlockAndTheServersOwnIsNoted) {
  agent::PlanFacts facts = goodFacts();
  facts.node.addresses["192.0.2.50"] = "container 102";
  expectFinding(facts, Severity::kBlock, "Address 192.0.2.50 is in use by container 102.");
  facts = goodFacts();
  facts.config["NETIF"] = "ifname=eth0,ip=192.0.2.11/24";
  expectFinding(facts, Severity::kNote,
                "The server has the address 192.0.2.11 as well: turn it off before the container "
                "is started.");
  facts.config.erase("NETIF");
  expectFinding(facts, Severity::kWarning, "The container gets no address: give --ip.");
}

TEST(Plan, AContainerWithoutAGatewayIsToldOf) {
  const char told[] =
      "The container has no gateway and reaches only its own net: set GATEWAY in /etc/qx/qx.conf, "
      "or in --config.";
  agent::PlanFacts facts = goodFacts();
  facts.node.hasGateway = false;
  expectFinding(facts, Severity::kNote, told);
  // With the server's address it has the server's gateway, and a DHCP server tells one.
  for (const char* address : {"192.0.2.11/24", "dhcp"}) {
    facts.config["NETIF"] = std::string("ifname=eth0,ip=192.0.2.50/24,ip=") + address;
    for (const agent::Finding& finding : agent::makePlan(facts).findings) {
      EXPECT_NE(finding.text, told) << address;
    }
  }
}

TEST(Plan, ADistributionWithoutScriptBlocks) {
  agent::PlanFacts facts = goodFacts();
  facts.config.erase("DISTRIBUTION");
  expectFinding(facts, Severity::kBlock,
                "The server's distribution is not known: give --distribution NAME-VERSION.");
  facts = goodFacts();
  facts.node.distributionScript = "";
  facts.node.distributionFile = "/dists/debian.conf";
  expectFinding(facts, Severity::kBlock,
                "The node has no script for debian-12; it knows: debian, ubuntu. Give it one with "
                "POST_MIGRATE in /dists/debian.conf, or give another --distribution.");
  facts.node.distributionProblem = "/dists/debian.conf: line 2: '=' or ':' expected";
  expectFinding(facts, Severity::kBlock,
                "The node cannot use its file for debian-12: /dists/debian.conf: line 2: '=' or "
                "':' expected.");
  facts = goodFacts();
  facts.node.distributionScriptExists = false;
  expectFinding(facts, Severity::kBlock,
                "The script for debian-12 is missing: /dists/scripts/debian.sh.");
}

TEST(Plan, AServiceWithoutInitScriptBlocks) {
  agent::PlanFacts facts = goodFacts();
  facts.services = {"nginx"};
  EXPECT_EQ(agent::makePlan(facts).verdict, Verdict::kReady);
  facts.services = {"nginx", "oracle"};
  expectFinding(facts, Severity::kBlock,
                "Service oracle has no script in the server's /etc/init.d.");
  facts.survey.runningServices = {"cron", "nginx"};
  expectFinding(facts, Severity::kBlock,
                "Service oracle has no script in the server's /etc/init.d. These have one, and "
                "run: cron, nginx.");
}

TEST(Plan, StoppingTheServersDoorIsWarnedOf) {
  for (const std::string name : {"ssh", "sshd"}) {
    agent::PlanFacts facts = goodFacts();
    facts.survey.initScripts.push_back(name);
    facts.services = {name};
    expectFinding(facts, Severity::kWarning,
                  "Service " + name +
                      " stays stopped when the migration succeeds: nobody can log in to the "
                      "server any more, except at its console.");
  }
}

TEST(Plan, SystemdThatCannotRunOnTheNodeBlocks) {
  agent::PlanFacts facts = goodFacts();
  facts.survey.systemdVersion = 219;
  expectFinding(facts, Severity::kBlock,
                "The server's systemd 219 cannot run on a node that has control groups v2 only; "
                "233 can. Boot the node with systemd.unified_cgroup_hierarchy=0.");
  facts.node.cgroupV1 = true;
  EXPECT_EQ(agent::makePlan(facts).verdict, Verdict::kReady);
  facts.node.cgroupV2 = false;
  facts.survey.systemdVersion = 256;
  expectFinding(facts, Severity::kBlock,
                "The server's systemd 256 cannot run on a node that has control groups v1 only; "
                "255 can. Boot the node with systemd.unified_cgroup_hierarchy=1.");
  facts.survey.systemdVersion = 0;
  EXPECT_EQ(agent::makePlan(facts).verdict, Verdict::kReady);
}

TEST(Plan, SystemdThatNeedsNewMountCallsBlocksInAPrivilegedContainer) {
  agent::PlanFacts facts = goodFacts();
  facts.node.ids = 0;
  facts.survey.systemdVersion = 258;
  expectFinding(facts, Severity::kBlock,
                "The server's systemd 258 cannot run in a privileged container, where the mount "
                "calls that it needs are forbidden; 257 can. The container must be unprivileged.");
  facts.survey.systemdVersion = 257;
  EXPECT_EQ(agent::makePlan(facts).verdict, Verdict::kReady);
  facts.node.ids = 65536;
  facts.survey.systemdVersion = 262;
  EXPECT_EQ(agent::makePlan(facts).verdict, Verdict::kReady);
}

TEST(Plan, WeaknessesOfTheNodeAreToldAndBlockNothing) {
  agent::PlanFacts facts = goodFacts();
  facts.node.weaknesses = {"AppArmor is off; start the kernel with it"};
  expectFinding(facts, Severity::kNote, "The node: AppArmor is off; start the kernel with it.");
  EXPECT_EQ(agent::makePlan(facts).verdict, Verdict::kReady);
}

TEST(Plan, SystemdOfTheFirstReleaseThatCanIsReady) {
  agent::PlanFacts facts = goodFacts();
  facts.survey.systemdVersion = 232;
  EXPECT_EQ(agent::makePlan(facts).verdict, Verdict::kBlocked);
  facts.survey.systemdVersion = 233;
  EXPECT_EQ(agent::makePlan(facts).verdict, Verdict::kReady);
  facts.node.cgroupV1 = true;
  facts.node.cgroupV2 = false;
  facts.survey.systemdVersion = 255;
  EXPECT_EQ(agent::makePlan(facts).verdict, Verdict::kReady);
}

TEST(Plan, AContainerWithoutHostNameWarns) {
  agent::PlanFacts facts = goodFacts();
  facts.config.erase("HOSTNAME");
  expectFinding(facts, Severity::kWarning, "The container gets no host name: give --hostname.");
}

TEST(Plan, WhatWasLookedAtInPartIsNoted) {
  agent::PlanFacts facts = goodFacts();
  facts.survey.scanComplete = false;
  expectFinding(facts, Severity::kNote,
                "There are too many files to look at each: sizes are those of the file systems.");
  expectFinding(facts, Severity::kNote,
                "Immutable files and large ids were looked for in a part of the files only.");
}

TEST(Plan, RemoteMountsAreMissingAndWarnedOfOnce) {
  agent::PlanFacts facts = goodFacts();
  agent::SurveyedFileSystem data{"nas:/data", "/data", "nfs4", "rw"};
  data.mounted = data.remote = true;
  facts.survey.fileSystems.push_back(data);
  expectFinding(facts, Severity::kWarning,
                "/data is nfs4 from nas:/data: it is not copied, and missing in the container.");
  const agent::Plan plan = agent::makePlan(facts);
  EXPECT_EQ(plan.findings.size(), 1U);
  EXPECT_THAT(plan.missingMounts, ElementsAre(Field(&agent::MissingMount::mountPoint, "/data")));
}

// A program's mount of another machine, which the calculator does not know as one.
TEST(Plan, RemoteMountsThatNothingLeavesOutAreLeftOut) {
  agent::PlanFacts facts = goodFacts();
  agent::SurveyedFileSystem data{"me@nas:/data", "/data", "fuse.sshfs", "rw"};
  data.mounted = data.remote = true;
  facts.survey.fileSystems.push_back(data);
  EXPECT_THAT(agent::exclusionPatterns(facts), Contains("/data/*"));
  EXPECT_THAT(agent::makePlan(facts).excludes,
              Contains(Field(&agent::PlannedExclude::reason,
                             "on another machine: fuse.sshfs from me@nas:/data")));
  facts.givenExcludes = {"/data"};
  EXPECT_THAT(agent::exclusionPatterns(facts), Not(Contains("/data/*")));
  // One that is in /etc/fstab only is an empty directory.
  facts = goodFacts();
  data.mounted = false;
  facts.survey.fileSystems.push_back(data);
  EXPECT_THAT(agent::exclusionPatterns(facts), Not(Contains("/data/*")));
}

TEST(Plan, MountsThatCannotBeCopiedAreLeftOutWithTheReason) {
  agent::PlanFacts facts = goodFacts();
  agent::SurveyedFileSystem view{"/dev/sda1", "/srv/view", "ext4", "rw"};
  view.mounted = true;
  view.reason = "a second view of other files";
  facts.survey.fileSystems.push_back(view);
  EXPECT_THAT(agent::exclusionPatterns(facts), Contains("/srv/view/*"));
  expectFinding(facts, Severity::kWarning,
                "/srv/view (ext4, /dev/sda1) will be missing in the container: a second view of "
                "other files.");
}

TEST(Plan, ALocalMountThatIsLeftOutWarns) {
  agent::PlanFacts facts = goodFacts();
  facts.survey.fileSystems.push_back({"/dev/loop0", "/mnt/image", "ext4", "rw"});
  expectFinding(facts, Severity::kWarning,
                "/mnt/image (ext4, /dev/loop0) will be missing in the container.");
}

TEST(Plan, LargeIdsAreNotedAndBlockAnUnprivilegedContainer) {
  agent::PlanFacts facts = goodFacts();
  facts.survey.largestUid = 65535;
  EXPECT_THAT(agent::makePlan(facts).findings, IsEmpty());
  facts.survey.largestUid = 65536;
  facts.survey.largestUidPath = "/home/far";
  expectFinding(facts, Severity::kNote,
                "The largest user id is 65536 (/home/far): an unprivileged container could not "
                "hold it.");
  facts.node.ids = 65536;
  expectFinding(facts, Severity::kBlock,
                "The largest user id is 65536 (/home/far): the unprivileged container has 65536 "
                "only: give it more with UNPRIVILEGED_IDS, or set UNPRIVILEGED=no.");
  facts.node.ids = 65537;
  EXPECT_THAT(agent::makePlan(facts).findings, IsEmpty());
  facts.survey.largestGid = 70000;
  facts.survey.largestGidPath = "/etc/group";
  expectFinding(facts, Severity::kBlock,
                "The largest group id is 70000 (/etc/group): the unprivileged container has 65537 "
                "only: give it more with UNPRIVILEGED_IDS, or set UNPRIVILEGED=no.");
}

TEST(Plan, ImmutableFilesWarn) {
  agent::PlanFacts facts = goodFacts();
  facts.survey.immutableFiles = {"/etc/resolv.conf"};
  facts.survey.immutableCount = 3;
  expectFinding(facts, Severity::kWarning,
                "3 immutable or append-only files lose that attribute, first /etc/resolv.conf.");
}

TEST(Plan, SwapFilesAreLeftOutOfCopyAndSize) {
  agent::PlanFacts facts = goodFacts();
  facts.survey.swapFiles = {{"/swapfile", gib}};
  expectFinding(facts, Severity::kNote, "Swap file /swapfile (1.0 GiB) is left out.");
  EXPECT_THAT(agent::exclusionPatterns(facts), Contains("/swapfile"));
  // What was counted file by file has them left out already; a file system's own
  // figures have not.
  EXPECT_EQ(agent::makePlan(facts).bytes, 2 * gib);
  EXPECT_EQ(agent::makePlan(facts).files, 50000);
  facts.survey.scanComplete = false;
  EXPECT_EQ(agent::makePlan(facts).bytes, gib);
  EXPECT_EQ(agent::makePlan(facts).files, 49999);
}

TEST(Plan, ASparseLastlogIsNoted) {
  agent::PlanFacts facts = goodFacts();
  facts.survey.lastlogBytes = 12 * gib;
  facts.survey.lastlogAllocated = 40960;
  expectFinding(facts, Severity::kNote,
                "/var/log/lastlog is sparse (12.0 GiB, 40.0 KiB on disk); it is never copied.");
  facts.survey.lastlogAllocated = facts.survey.lastlogBytes;
  EXPECT_THAT(agent::makePlan(facts).findings, IsEmpty());
  facts.survey.lastlogBytes = 292292;
  facts.survey.lastlogAllocated = 4096;
  EXPECT_THAT(agent::makePlan(facts).findings, IsEmpty());
}

TEST(Plan, StorageOfContainersInsideWarns) {
  agent::PlanFacts facts = goodFacts();
  facts.survey.nestedStorage = {"/var/lib/docker/overlay2"};
  expectFinding(facts, Severity::kWarning,
                "Storage of containers, packages or machines inside: /var/lib/docker/overlay2 may "
                "not work in a container.");
}

TEST(Plan, WarningsOfTheCalculatorArePassedOn) {
  agent::PlanFacts facts = goodFacts();
  facts.measurement.warnings = {{3, "Several network interfaces were found."}};
  expectFinding(facts, Severity::kWarning, "Several network interfaces were found.");
}

TEST(Plan, AnExclusionThatCannotBePassedOnBlocks) {
  agent::PlanFacts facts = goodFacts();
  facts.measurement.excludes.push_back({"/mnt/a b/*", true});
  EXPECT_EQ(agent::makePlan(facts).verdict, Verdict::kBlocked);
}

TEST(Plan, BlocksComeBeforeWarningsBeforeNotes) {
  agent::PlanFacts facts = goodFacts();
  facts.node.containerExists = true;
  facts.survey.swapFiles = {{"/swapfile", 4096}};
  facts.measurement.warnings = {{1, "w"}};
  std::vector<Severity> order;
  for (const auto& finding : agent::makePlan(facts).findings) order.push_back(finding.severity);
  EXPECT_THAT(order, ElementsAre(Severity::kBlock, Severity::kWarning, Severity::kNote));
}

TEST(Plan, ExclusionsSayWhyAndComeOnce) {
  agent::PlanFacts facts = goodFacts();
  facts.givenExcludes = {"/srv/cache/*"};
  facts.measurement.excludes = {{"/proc/*", false}, {"/data/*", true}};
  agent::SurveyedFileSystem data{"nas:/data", "/data", "nfs4", "rw"};
  data.remote = true;
  facts.survey.fileSystems.push_back(data);
  std::vector<std::string> lines;
  for (const auto& exclude : agent::plannedExcludes(facts)) {
    lines.push_back(exclude.path + ": " + exclude.reason);
  }
  EXPECT_THAT(
      lines, ElementsAre("/srv/cache/*: asked for", "/proc/*: made by the kernel or kept in memory",
                         "/data/*: on another machine: nfs4 from nas:/data",
                         "/sys/*: made by the kernel or kept in memory",
                         "/var/log/lastlog: last logins, in a file that may be huge and sparse",
                         "/var/qxagent.tmp: the agent itself"));
}

TEST(PlanText, NoLineIsWiderThan80Columns) {
  agent::PlanFacts facts = goodFacts();
  facts.survey.fileSystems[0].device = "/dev/mapper/" + std::string(100, 'x');
  facts.measurement.excludes.push_back({"/" + std::string(200, 'y'), true});
  facts.measurement.warnings = {{1, std::string(300, 'z') + " and more words of a long text"}};
  for (int i = 0; i < 30; ++i)
    facts.survey.runningServices.push_back("service" + std::to_string(i));
  std::istringstream lines(agent::planText(facts, agent::makePlan(facts)));
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) EXPECT_LE(line.size(), 80U) << line;
  EXPECT_GT(count, 30);
}

TEST(PlanText, AServersNamesCannotDriveTheTerminal) {
  agent::PlanFacts facts = goodFacts();
  facts.survey.fileSystems.push_back({"/dev/x", "/mnt/\x1b[2Jevil", "ext4", ""});
  EXPECT_THAT(agent::planText(facts, agent::makePlan(facts)), Not(HasSubstr("\x1b")));
}

TEST(PlanText, LimitsShowWhatWasMeasured) {
  const agent::PlanFacts facts = goodFacts();
  const std::string text = agent::planText(facts, agent::makePlan(facts));
  EXPECT_THAT(text, HasSubstr("  numproc           240            240            18\n"));
  EXPECT_THAT(text, HasSubstr("  diskspace         2.0 GiB        2.2 GiB        2.0 GiB\n"));
  EXPECT_THAT(text, EndsWith("\nVerdict: ready\n"
                             "The same command without the word \"plan\" migrates.\n"));
}

TEST(PlanText, EndsWithWhatToDo) {
  agent::PlanFacts facts = goodFacts();
  facts.measurement.warnings = {{1, "w"}};
  EXPECT_THAT(agent::planText(facts, agent::makePlan(facts)),
              EndsWith("\nwarning  w\nVerdict: ready with warnings\n"
                       "The same command without the word \"plan\" migrates; see above for what "
                       "will not\nbe as on the server.\n"));
  facts.node.containerExists = true;
  EXPECT_THAT(agent::planText(facts, agent::makePlan(facts)),
              EndsWith("\nVerdict: blocked\nA migration stops here, unless --force is given. Fix "
                       "what is marked BLOCKED and\nplan again.\n"));
}

TEST(PlanText, WhatTheContainerIsLikeIsShownWhereItIsNotTheUsual) {
  agent::PlanFacts facts = goodFacts();
  EXPECT_THAT(agent::planText(facts, agent::makePlan(facts)),
              AllOf(Not(HasSubstr("\n  storage ")), Not(HasSubstr("privileges")),
                    HasSubstr("\n  name servers    none\n")));
  facts.node.storage = "ext4";
  facts.node.ids = 65536;
  EXPECT_THAT(agent::planText(facts, agent::makePlan(facts)),
              AllOf(HasSubstr("\n  storage         ext4\n"),
                    HasSubstr("\n  privileges      none: its root is a user of the node\n")));
}

TEST(PlanText, NumbersAreForPeople) {
  EXPECT_EQ(agent::bytesText(1023), "1023 bytes");
  EXPECT_EQ(agent::bytesText(1536), "1.5 KiB");
  EXPECT_EQ(agent::bytesText(5 * gib), "5.0 GiB");
  EXPECT_EQ(agent::countText(999), "999");
  EXPECT_EQ(agent::countText(-1234567), "-1,234,567");
  EXPECT_EQ(agent::wrapped("a ", "    ", "bb cc dd", 7), "a bb cc\n    dd\n");
}

TEST(PlanJson, HoldsVerdictFindingsAndFigures) {
  agent::PlanFacts facts = goodFacts();
  facts.node.containerExists = true;
  const auto value = nlohmann::json::parse(agent::planJson(facts, agent::makePlan(facts)));
  EXPECT_EQ(value["verdict"], "blocked");
  EXPECT_EQ(value["findings"][0]["severity"], "block");
  EXPECT_EQ(value["copy"]["bytes"], 2 * gib);
  EXPECT_EQ(value["measurement"]["numproc"], 18);
  EXPECT_EQ(value["configuration"]["NUMPROC"], "240:240");
}

TEST(PlanJson, NamesThatAreNotUtf8AreReplaced) {
  agent::PlanFacts facts = goodFacts();
  facts.survey.immutableFiles = {"/etc/\xff"};
  EXPECT_TRUE(nlohmann::json::accept(agent::planJson(facts, agent::makePlan(facts))));
}

}  // namespace
