#include <unistd.h>

#include <cstdlib>

#include "fixtures/failing_fork.h"
#include "workers.h"

using namespace fixtures;
using namespace test_support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

// Starts a source and forgets what that called.
struct StartedSource : Source {
  StartedSource(const ScratchHost& host, const ParamsPtr& params) {
    const Served served = start(params);
    EXPECT_EQ(served.code, 0) << served.text;
    host.clearCalls();
  }
};

ParamsPtr withServices(const std::vector<QXL::QXLService>& services) {
  const ParamsPtr params = newParams();
  params->options.services = services;
  return params;
}

// A du that prints `total` for "/" and `excluded` for everything else.
FakeTool du(const std::string& total, const std::string& excluded) {
  return {.script =
              "if [ $# = 2 ]; then printf '" + total + "'; else printf '" + excluded + "'; fi"};
}

const char kDu[] = "/usr/bin/du";
const char kExcludeCommand[] = "du -s -c  /proc/* /sys/* /var/log/lastlog /var/qxagent.tmp";

}  // namespace

TEST(StopServices, WithoutServicesSucceedsSilently) {
  ScratchHost host = serverHost();
  host.run([&] {
    StartedSource source(host, newParams());
    const Served served = source.request("stopServices");
    EXPECT_EQ(served.code, 0);
    EXPECT_THAT(served.lines, IsEmpty());
    EXPECT_THAT(host.calls(), IsEmpty());
  });
}

TEST(StopServices, RunsEachScriptInOrderWhateverComesOfIt) {
  ScratchHost host = serverHost();
  host.tool("/etc/init.d/b", {.status = 1});
  host.tool("/etc/init.d/gone");
  host.tool("/etc/init.d/killed", {.script = "kill -KILL $$"});
  host.tool("/etc/init.d/a");
  host.run([&] {
    StartedSource source(host, withServices({{"b"}, {"gone"}, {"killed"}, {"a"}, {"b"}}));
    ASSERT_EQ(unlink("/etc/init.d/gone"), 0);
    const Served served = source.request("stopServices");
    EXPECT_EQ(served.code, 0);
    EXPECT_THAT(served.lines, ElementsAre("Stopping services..."));
    EXPECT_THAT(host.calls(),
                ElementsAre(call("/etc/init.d/b stop"), call("/etc/init.d/killed stop"),
                            call("/etc/init.d/a stop"), call("/etc/init.d/b stop")));
  });
}

TEST(ShutdownAndDestroy, SucceedWithoutTouchingTheSystem) {
  ScratchHost host = serverHost();
  host.run([&] {
    StartedSource source(host, newParams());
    for (const char* stage : {"shutdownSrcSrv", "destroySrcSrv"}) {
      const Served served = source.request(stage);
      EXPECT_EQ(served.code, 0);
      EXPECT_EQ(served.answer->errorsPut + served.answer->fieldsPut, 0);
    }
    EXPECT_THAT(host.calls(), IsEmpty());
  });
}

TEST(DumpQuota, AnswersWithTheDumpOfTheRootFileSystem) {
  ScratchHost host = serverHost();
  host.file("/etc/mtab", "/dev/gone / ext3 rw,usrquota,grpquota 0 0\n");
  host.tool("/usr/sbin/repquota", {.script = "echo report $*"});
  host.tool("/usr/sbin/edquota", {.script = "echo table $*"});
  host.run([&] {
    StartedSource source(host, newParams());
    const Served served = source.request("dumpQuota");
    EXPECT_EQ(served.code, 0) << served.text;
    EXPECT_THAT(served.lines, ElementsAre("Dumping quota..."));
    EXPECT_EQ(served.answer->fieldsPut, 1);
    EXPECT_EQ(served.quota(),
              "limits 0 26\ngraces 26 26\n\n"
              "report -un /\nreport -gn /\ntable -utf /\ntable -gtf /\n");
    std::string text;
    DirectSource direct;
    direct.call([&](auto& worker) { return worker.dumpQuota(&text); });
    EXPECT_EQ(text, served.quota());
  });
}

TEST(DumpQuota, WithoutQuotasTheSectionsAreEmpty) {
  ScratchHost host = serverHost();
  host.file("/etc/mtab", "/dev/gone / ext3 rw 0 0\n");
  host.run([&] {
    StartedSource source(host, newParams());
    EXPECT_EQ(source.request("dumpQuota").quota(), "limits 0 0\ngraces 0 0\n\n");
  });
}

TEST(DumpQuota, QuotasOfUsersAloneFillBothSections) {
  ScratchHost host = serverHost();
  host.file("/etc/mtab", "/dev/gone / ext3 rw,usrquota 0 0\n");
  host.tool("/usr/sbin/repquota", {.script = "echo report $*"});
  host.tool("/usr/sbin/edquota", {.script = "echo table $*"});
  host.run([&] {
    StartedSource source(host, newParams());
    EXPECT_EQ(source.request("dumpQuota").quota(),
              "limits 0 13\ngraces 13 13\n\nreport -un /\ntable -utf /\n");
  });
}

TEST(DumpQuota, SilentToolsGiveAHeaderAlone) {
  ScratchHost host = serverHost();
  host.file("/etc/mtab", "/dev/gone / ext3 rw,usrquota,grpquota 0 0\n");
  host.tool("/usr/sbin/repquota", {.script = ":"});
  host.tool("/usr/sbin/edquota", {.script = ":"});
  host.run([&] {
    StartedSource source(host, newParams());
    EXPECT_EQ(source.request("dumpQuota").quota(), "limits 0 0\ngraces 0 0\n\n");
    EXPECT_THAT(host.calls(), SizeIs(4));
  });
}

TEST(DumpQuota, FailureKeepsTheQuotaFunctionsError) {
  ScratchHost host = serverHost();
  host.file("/etc/mtab", "/dev/gone / ext3 rw,usrquota 0 0\n");
  host.tool("/usr/sbin/repquota", {.status = 1, .err = "no quota file\n"});
  host.run([&] {
    std::string text = "as it was";
    DirectSource source;
    const Served served = source.call([&](auto& worker) { return worker.dumpQuota(&text); });
    EXPECT_EQ(served.code, -1);
    EXPECT_EQ(served.text, "Error running 'repquota -un /':\nno quota file\n");
    EXPECT_EQ(served.answer->fieldsPut, 0);
    EXPECT_EQ(text, "as it was");
  });
}

TEST(UsageDiskSpace, IsTheTotalLessTheExcludedPaths) {
  ScratchHost host = serverHost();
  host.tool(kDu, du("1000\\t/\\n", "10\\t/proc\\n20\\t/sys\\n30\\ttotal\\n"));
  host.dir("/sys").file("/sys/a b", "").file("/sys/c", "");
  host.run([&] {
    StartedSource source(host, newParams());
    const Served served = source.request("getUsageDiskSpace");
    EXPECT_EQ(served.code, 0) << served.text;
    EXPECT_EQ(served.bytes(), 970 * 1024);
    EXPECT_EQ(served.answer->fieldsPut, 1);
    EXPECT_THAT(served.lines, IsEmpty());
    const auto calls = host.callWords();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_THAT(calls[0], ElementsAre(kDu, "-s", "/"));
    // The shell has expanded the wildcards.
    EXPECT_THAT(calls[1], testing::Contains("/sys/a b"));
    EXPECT_THAT(calls[1], testing::Contains("/proc/self"));
    EXPECT_EQ(calls[1][1] + calls[1][2], "-s-c");
    EXPECT_EQ(calls[1].back(), "/var/qxagent.tmp");
  });
}

TEST(UsageDiskSpace, WithAnEmptyExclusionListOneCommandRuns) {
  ScratchHost host = serverHost();
  host.tool(kDu, du("1000\\t/\\n", "30\\ttotal\\n"));
  host.run([&] {
    DirectSource source;
    const ParamsPtr params = newParams();
    EXPECT_EQ(source.init(params).code, 0);
    params->options.excludes.clear();
    host.clearCalls();
    long long bytes = 0;
    EXPECT_EQ(source.call([&](auto& worker) { return worker.getUsageDiskSpace(&bytes); }).bytes(),
              1000 * 1024);
    EXPECT_EQ(bytes, 1000 * 1024);
    EXPECT_THAT(host.calls(), ElementsAre(call(std::string(kDu) + " -s /")));
  });
}

TEST(UsageDiskSpace, ExclusionThatAShellWouldActOnIsRefused) {
  for (const std::string pattern : {"/a;touch${IFS}/ran", "/$(touch /ran)", "/a b"}) {
    ScratchHost host = serverHost();
    host.tool(kDu, du("1000\\t/\\n", "30\\ttotal\\n"));
    host.run([&] {
      DirectSource source;
      const ParamsPtr params = newParams();
      params->options.excludes = {pattern};
      EXPECT_EQ(source.init(params).code, 0);
      long long bytes = 0;
      EXPECT_EQ(source.call([&](auto& worker) { return worker.getUsageDiskSpace(&bytes); }).text,
                "Exclusion '" + pattern + "' holds characters that cannot be passed to a command");
      EXPECT_NE(access("/ran", F_OK), 0);
    });
  }
}

TEST(UsageDiskSpace, PositionOfTheFirstOutputServesTheSecond) {
  ScratchHost host = serverHost();
  host.tool(kDu, du("  1000\\t/\\n", "5 7 total\\n"));
  host.run([&] {
    StartedSource source(host, newParams());
    EXPECT_EQ(source.request("getUsageDiskSpace").bytes(), 993 * 1024);
  });
}

TEST(UsageDiskSpace, WarningsOfDuAreNoFailure) {
  ScratchHost host = serverHost();
  FakeTool tool = du("1000\\t/\\n", "30\\ttotal\\n");
  tool.status = 1;
  tool.err = "du: cannot read directory\n";
  host.tool(kDu, tool);
  host.run([&] {
    StartedSource source(host, newParams());
    EXPECT_EQ(source.request("getUsageDiskSpace").bytes(), 970 * 1024);
  });
}

TEST(UsageDiskSpace, DuWithoutOutputIsAnError) {
  ScratchHost host = serverHost();
  host.tool(kDu, {.err = "du: broken\n"});
  host.run([&] {
    StartedSource source(host, newParams());
    const Served served = source.request("getUsageDiskSpace");
    EXPECT_EQ(served.code, -1);
    EXPECT_EQ(served.text, "Error get output 'du -s /':\ndu: broken\n");
    EXPECT_EQ(served.answer->fieldsPut, 0);
  });
}

TEST(UsageDiskSpace, DuThatGivesUpOnceIsAskedAgain) {
  ScratchHost host = serverHost();
  host.tool(kDu, {.script = "if [ -e /tmp/again ]; then echo 1; else touch /tmp/again; fi"});
  host.run([&] {
    StartedSource source(host, newParams());
    EXPECT_EQ(source.request("getUsageDiskSpace").code, 0);
  });
}

TEST(UsageDiskSpace, SecondDuWithoutOutputIsAnErrorToo) {
  ScratchHost host = serverHost();
  host.tool(kDu, {.script = "if [ $# = 2 ]; then echo 1; else echo no >&2; fi"});
  host.run([&] {
    StartedSource source(host, newParams());
    EXPECT_EQ(source.request("getUsageDiskSpace").text,
              "Error get output '" + std::string(kExcludeCommand) + "':\nno\n");
  });
}

TEST(UsageDiskSpace, UnitsOfTheEnvironmentDoNotMislead) {
  ScratchHost host = serverHost();
  host.tool(kDu,
            {.script = "if [ -n \"$DU_BLOCK_SIZE$BLOCK_SIZE$BLOCKSIZE${POSIXLY_CORRECT+x}\" ]; "
                       "then echo 1; elif [ $# = 2 ]; then echo 5; else echo 2; fi"});
  host.run([&] {
    for (const char* name : {"DU_BLOCK_SIZE", "BLOCK_SIZE", "BLOCKSIZE", "POSIXLY_CORRECT"}) {
      setenv(name, "1", 1);
      StartedSource source(host, newParams());
      EXPECT_EQ(source.request("getUsageDiskSpace").bytes(), 3 * 1024) << name;
      EXPECT_STREQ(getenv(name), "1");
      unsetenv(name);
    }
  });
}

TEST(UsageDiskSpace, RunnerThatCannotForkFailsTheStageAndNotTheAgent) {
  ScratchHost host = serverHost();
  host.run([&] {
    StartedSource source(host, newParams());
    failForks();
    const Served served = source.request("getUsageDiskSpace");
    EXPECT_EQ(served.code, -1);
    EXPECT_EQ(served.text, "[Caller] Generic error. Fork returned: Cannot allocate memory");
  });
}
