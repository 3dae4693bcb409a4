#include "node/resources.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/error.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

node::Container containerWith(const node::ShellVars& vars) {
  node::Container container;
  container.id = 101;
  container.vars = vars;
  return container;
}

std::vector<std::string> shown(const node::ResourcePlan& plan) {
  std::vector<std::string> lines;
  for (const node::Limit& limit : plan.limits) {
    lines.push_back(limit.record + ": " + limit.key + " = " + limit.value);
  }
  return lines;
}

const node::ShellVars kRecords{
    {"NUMPROC", "400:500"},    {"SLMMEMORYLIMIT", "536870912:1073741824"},
    {"CPUUNITS", "2000"},      {"NUMPTY", "255:255"},
    {"NUMFILE", "9312:9312"},  {"PHYSPAGES", "0:9223372036854775807"},
    {"QUOTAUGIDLIMIT", "1024"}};

TEST(Resources, FirstGeneration) {
  node::CgroupLayout layout;
  layout.v1 = {{"pids", ""}, {"memory", ""}, {"cpu", ""}};
  const node::ResourcePlan plan = node::planResources(containerWith(kRecords), layout);
  EXPECT_THAT(shown(plan),
              ElementsAre("NUMPROC: lxc.cgroup.pids.max = 500", "NUMPTY: lxc.pty.max = 255",
                          "CPUUNITS: lxc.cgroup.cpu.shares = 2048",
                          "SLMMEMORYLIMIT: lxc.cgroup.memory.limit_in_bytes = 1073741824"));
  EXPECT_THAT(plan.unenforced, ElementsAre("NUMFILE"));
}

TEST(Resources, SecondGeneration) {
  node::CgroupLayout layout;
  layout.v2 = {"pids", "memory", "cpu"};
  EXPECT_THAT(shown(node::planResources(containerWith(kRecords), layout)),
              ElementsAre("NUMPROC: lxc.cgroup2.pids.max = 500", "NUMPTY: lxc.pty.max = 255",
                          "CPUUNITS: lxc.cgroup2.cpu.weight = 200",
                          "SLMMEMORYLIMIT: lxc.cgroup2.memory.max = 1073741824"));
}

TEST(Resources, WithoutAControllerTheRecordIsNotEnforced) {
  node::CgroupLayout layout;
  layout.v1 = {{"pids", ""}};
  layout.v2 = {"memory"};
  const node::ResourcePlan plan = node::planResources(containerWith(kRecords), layout);
  EXPECT_THAT(shown(plan),
              ElementsAre("NUMPROC: lxc.cgroup.pids.max = 500", "NUMPTY: lxc.pty.max = 255",
                          "SLMMEMORYLIMIT: lxc.cgroup2.memory.max = 1073741824"));
  EXPECT_THAT(plan.unenforced, ElementsAre("NUMFILE", "CPUUNITS"));
}

TEST(Resources, UnlimitedIsWrittenAsTheKernelHasIt) {
  const node::ShellVars vars{{"NUMPROC", "unlimited"},
                             {"SLMMEMORYLIMIT", "0:9223372036854775807"},
                             {"CPUUNITS", "99999999999999999999"}};
  node::CgroupLayout v1;
  v1.v1 = {{"pids", ""}, {"memory", ""}, {"cpu", ""}};
  EXPECT_THAT(
      shown(node::planResources(containerWith(vars), v1)),
      ElementsAre("NUMPROC: lxc.cgroup.pids.max = max", "CPUUNITS: lxc.cgroup.cpu.shares = 262144",
                  "SLMMEMORYLIMIT: lxc.cgroup.memory.limit_in_bytes = -1"));
  node::CgroupLayout v2;
  v2.v2 = {"pids", "memory", "cpu"};
  EXPECT_THAT(
      shown(node::planResources(containerWith(vars), v2)),
      ElementsAre("NUMPROC: lxc.cgroup2.pids.max = max", "CPUUNITS: lxc.cgroup2.cpu.weight = 10000",
                  "SLMMEMORYLIMIT: lxc.cgroup2.memory.max = max"));
}

TEST(Resources, NoRecordsNoLimits) {
  node::CgroupLayout layout;
  layout.v1 = {{"pids", ""}, {"memory", ""}, {"cpu", ""}};
  const node::ResourcePlan plan = node::planResources(containerWith({}), layout);
  EXPECT_THAT(plan.limits, IsEmpty());
  EXPECT_THAT(plan.unenforced, IsEmpty());
}

TEST(Resources, MalformedRecordIsRefusedByName) {
  for (const char* value : {"many", "1:", ":1", "1:2:3", "-1", "1 "}) {
    try {
      node::planResources(containerWith({{"NUMPROC", value}}), {});
      ADD_FAILURE() << value << " was accepted";
    } catch (const node::Error& error) {
      EXPECT_EQ(error.code(), node::ExitCode::kBadConfig);
      EXPECT_THAT(error.what(), HasSubstr("NUMPROC of container 101"));
    }
  }
}

TEST(Cgroups, HostWithBothGenerations) {
  const node::CgroupLayout layout = node::layoutOf(host::parseMountInfo(
      "20 1 0:17 / /sys/fs/cgroup ro,nosuid - tmpfs tmpfs ro,mode=755\n"
      "21 20 0:18 / /sys/fs/cgroup/cpu,cpuacct rw shared:9 - cgroup cgroup rw,cpu,cpuacct\n"
      "22 20 0:19 / /sys/fs/cgroup/systemd rw - cgroup cgroup rw,xattr,name=systemd\n"
      "23 20 0:20 / /sys/fs/cgroup/unified rw shared:10 - cgroup2 cgroup2 rw\n"
      "24 20 broken\n"));
  EXPECT_TRUE(layout.v1.contains("cpu"));
  EXPECT_TRUE(layout.v1.contains("cpuacct"));
  EXPECT_FALSE(layout.v1.contains("memory"));
  EXPECT_EQ(layout.v2Mount, "/sys/fs/cgroup/unified");
  EXPECT_THAT(layout.v2, IsEmpty());
}

TEST(Cgroups, HostWithTheSecondGenerationAlone) {
  const node::CgroupLayout layout = node::layoutOf(host::parseMountInfo(
      "30 23 0:26 / /sys/fs/cgroup rw,nosuid shared:4 - cgroup2 cgroup2 rw,nsdelegate\n"));
  EXPECT_EQ(layout.v2Mount, "/sys/fs/cgroup");
  EXPECT_THAT(layout.v1, IsEmpty());
}

}  // namespace
