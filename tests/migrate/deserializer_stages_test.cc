#include <unistd.h>

#include <cstdlib>

#include "agent/system/log_level.h"
#include "fixtures/failing_fork.h"
#include "quota/quota_dump.h"
#include "workers.h"

using namespace fixtures;
using namespace test_support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const char kRunScript[] =
    "/usr/sbin/qxctl --skiplock runscript 101 "
    "/etc/sysconfig/qx-scripts/dists/scripts/debian.sh";
const char kSync[] = "/usr/sbin/qxpkg sync_qxpackages 101";

struct Started : Destination {
  explicit Started(const ParamsPtr& params = containerParams()) {
    const Served served = start(params);
    EXPECT_EQ(served.code, 0) << served.text;
  }
  Served restore(const std::string& dump) {
    return request("restoreQuota",
                   [&](QXL::QXLMessageIterator& in) { in.putValueBase64(dump, 1811); });
  }
};

ParamsPtr withTemplate(const std::string& name) {
  const ParamsPtr params = containerParams();
  params->options.config->setOsTemplate(QXA::QXAOsTemplate{name});
  return params;
}

ParamsPtr withRoot() {
  const ParamsPtr params = containerParams();
  params->options.config->setVERootVar("/vz/root/$VEID");
  return params;
}

}  // namespace

TEST(TuneDstSrv, RunsTheDistributionsScriptInTheContainer) {
  ScratchHost host = nodeHost();
  host.run([&] {
    Started destination;
    const Served served = destination.request("tuneDstSrv");
    EXPECT_EQ(served.code, 0) << served.text;
    EXPECT_THAT(host.calls(), ElementsAre(call(kRunScript)));
  });
}

TEST(TuneDstSrv, PackagesAreSynchronisedForADottedTemplateOnly) {
  const struct {
    const char* name;
    bool sync;
  } rows[] = {{".debian-12", true}, {"debian-12", false}, {"debian.12", false}, {"", false}};
  for (const auto& row : rows) {
    ScratchHost host = nodeHost();
    host.tool(kQxpkg, {.status = 1});  // not looked at
    host.run([&] {
      Started destination(withTemplate(row.name));
      EXPECT_EQ(destination.request("tuneDstSrv").code, 0);
      if (row.sync) {
        EXPECT_THAT(host.calls(), ElementsAre(call(kRunScript), call(kSync)));
      } else {
        EXPECT_THAT(host.calls(), ElementsAre(call(kRunScript)));
      }
    });
  }
}

TEST(TuneDstSrv, MissingScriptIsAnError) {
  ScratchHost host = nodeHost();
  host.run([&] {
    Started destination;
    makeEntry("/", fileAt(kDist, "[GLOBAL]\n"));
    const Served served = destination.request("tuneDstSrv");
    EXPECT_EQ(served.code, -1);
    EXPECT_EQ(served.text,
              "Couldn't find a proper post migration script for the given distribution "
              "'debian-12'");
    EXPECT_THAT(host.calls(), IsEmpty());
  });
}

TEST(TuneDstSrv, FailedScriptIsReportedAndTheMigrationIsNotComplete) {
  for (const std::string end : {"exit 1", "kill -KILL $$"}) {
    ScratchHost host = nodeHost();
    host.tool(kQxctl, {.script = "if [ $2 = runscript ]; then echo why >&2; " + end + "; fi"});
    host.run([&] {
      Started destination(withTemplate(".debian-12"));
      const Served served = destination.request("tuneDstSrv");
      EXPECT_EQ(served.code, -1);
      EXPECT_EQ(served.text,
                "Deserializer command '" + std::string(kRunScript) +
                    "' returned a non-successful status: " + (end == "exit 1" ? "256" : "9") +
                    ". Program error output follows:\nwhy\n");
      destination.request("finish");
      EXPECT_THAT(host.calls(),
                  ElementsAre(call(kRunScript), call("/usr/sbin/qxctl --skiplock umount 101")));
    });
  }
}

TEST(TuneDstSrv, MissingConfigurationStopsOnTheAssertion) {
  nodeHost().runExpectingAbort(
      [] {
        DirectDestination destination;
        destination.init(newParams());
        destination.call([](auto& w) { return w.tuneDstSrv(); });
      },
      "px != 0");
}

TEST(StartDstSrv, BeginsACommandAndIntentionallyDoesNothingElse) {
  ScratchHost host = nodeHost();
  host.run([&] {
    Started destination;
    EXPECT_EQ(destination.request("startDstSrv").code, 0);
    DirectDestination direct;
    direct.call([](auto& w) { return w.startDstSrv(); });
    EXPECT_EQ(direct.result, 0);
    EXPECT_TRUE(direct.leftOpen);
    EXPECT_THAT(host.calls(), IsEmpty());
  });
}

TEST(FreeDiskSpace, IsUsedPlusAvailable) {
  ScratchHost host = nodeHost();
  host.tool("/usr/bin/df", {.out = "Filesystem 1K-blocks Used Available Use% Mounted on\n"
                                   "/dev/sda1 1000 200 800 20% /vz\n"});
  host.run([&] {
    Started destination(withRoot());
    const Served served = destination.request("getFreeDiskSpace");
    EXPECT_EQ(served.code, 0) << served.text;
    EXPECT_EQ(served.bytes(), 1024000);
    EXPECT_EQ(served.answer->fieldsPut, 1);
    EXPECT_THAT(host.calls(), ElementsAre(call("/usr/bin/df /vz/root/101")));
  });
}

TEST(FreeDiskSpace, DataLineIsLoggedForDebugging) {
  ScratchHost host = nodeHost();
  host.tool("/usr/bin/df", {.out = "titles\nfs 1 2 3\n"});
  host.run([] {
    Started destination(withRoot());
    agent::setLogLevel(4);
    testing::internal::CaptureStderr();
    destination.request("getFreeDiskSpace");
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr(" 4 qxlinmigrate MigrateSys getFreeDiskSpace: "
                          "getFreeDiskSpace: fs 1 2 3\n"));
  });
}

TEST(FreeDiskSpace, MissingRootIsIntentionallyReportedAsThePrivateArea) {
  nodeHost().run([] {
    for (const ParamsPtr& params : {containerParams(), newParams()}) {
      Started destination(params);
      const Served served = destination.request("getFreeDiskSpace");
      EXPECT_EQ(served.code, -1);
      EXPECT_EQ(served.text, "VE_PRIVATE is not specified");
    }
    DirectDestination destination;
    const ParamsPtr params = containerParams();
    destination.init(params);
    params->options.config->setVERootVar("");
    long long bytes = 42;
    EXPECT_EQ(destination.call([&](auto& w) { return w.getFreeDiskSpace(&bytes); }).text,
              "VE_PRIVATE is not specified");
    EXPECT_EQ(bytes, 42);
  });
}

TEST(FreeDiskSpace, RootThatAShellWouldActOnIsRefused) {
  ScratchHost host = nodeHost();
  host.tool("/usr/bin/df");
  host.run([&] {
    DirectDestination destination;
    const ParamsPtr params = containerParams();
    destination.init(params);
    params->options.config->setVERootVar("/vz/$(touch /ran)");
    long long bytes = 42;
    EXPECT_EQ(destination.call([&](auto& w) { return w.getFreeDiskSpace(&bytes); }).text,
              "VE_ROOT '/vz/$(touch /ran)' holds characters that cannot be passed to a command");
    EXPECT_EQ(bytes, 42);
    EXPECT_NE(access("/ran", F_OK), 0);
  });
}

TEST(FreeDiskSpace, FailedDfIsReportedWithWhatItPrinted) {
  ScratchHost host = nodeHost();
  host.tool("/usr/bin/df", {.status = 1, .out = "out\n", .err = "df: no such file\n"});
  host.run([] {
    Started destination(withRoot());
    const Served served = destination.request("getFreeDiskSpace");
    EXPECT_EQ(served.code, -1);
    EXPECT_EQ(served.text, "Error running 'df /vz/root/101':\nout\ndf: no such file\n");
    EXPECT_EQ(served.answer->fieldsPut, 0);
  });
}

TEST(FreeDiskSpace, UnitsOfTheEnvironmentDoNotMislead) {
  ScratchHost host = nodeHost();
  host.dir("/vz/root/101");
  host.run([] {
    Started destination(withRoot());
    const long long plain = destination.request("getFreeDiskSpace").bytes();
    EXPECT_GT(plain, 0);
    for (const char* name : {"DF_BLOCK_SIZE", "BLOCK_SIZE", "BLOCKSIZE", "POSIXLY_CORRECT"}) {
      setenv(name, "4096", 1);
      EXPECT_EQ(destination.request("getFreeDiskSpace").bytes(), plain) << name;
      unsetenv(name);
    }
  });
}

TEST(FreeDiskSpace, RunnerThatCannotForkFailsTheStageAndNotTheAgent) {
  nodeHost().run([] {
    Started destination(withRoot());
    failForks();
    EXPECT_EQ(destination.request("getFreeDiskSpace").text,
              "[Caller] Generic error. Fork returned: Cannot allocate memory");
  });
}

TEST(RestoreQuota, AppliesTheLimitsAndTheUsersGraces) {
  ScratchHost host = nodeHost();
  host.tool("/usr/sbin/qxquota");
  host.run([&] {
    Started destination;
    const std::string report =
        "*** Report for user quotas on device /dev/sda1\n"
        "Block grace time: 7days; Inode grace time: 1hours\n"
        "----------------------------------------------------------------------\n"
        "#1000     +-    1500    1000    2000  6days      10   100   200\n"
        "\n"
        "*** Report for group quotas on device /dev/sda1\n"
        "Block grace time: 2days; Inode grace time: 2days\n"
        "----------------------------------------------------------------------\n"
        "#50       --     100      10      20             10     1     2\n";
    // The section of graces is intentionally not used.
    const Served served = destination.restore(
        QuotaMgmt::quota_dump_write(report, "Filesystem\n /dev/sda1 3days 3days\n"));
    EXPECT_EQ(served.code, 0) << served.text;
    EXPECT_THAT(
        host.calls(),
        ElementsAre(call("/usr/sbin/qxquota stat 101"), call("/usr/sbin/qxquota stat 101 -t"),
                    call("/usr/sbin/qxquota stat 101"),
                    call("/usr/sbin/qxquota setlimit2 101 -u 1000 1000 2000 100 200"),
                    call("/usr/sbin/qxquota setlimit2 101 -tu 604800 3600"),
                    call("/usr/sbin/qxquota setlimit2 101 -g 50 10 20 1 2"),
                    call("/usr/sbin/qxquota setlimit2 101 -tg 604800 3600")));
  });
}

TEST(RestoreQuota, MalformedDumpChangesNothing) {
  ScratchHost host = nodeHost();
  host.tool("/usr/sbin/qxquota");
  host.run([&] {
    Started destination;
    const Served cut = destination.restore("");
    EXPECT_EQ(cut.code, -1);
    EXPECT_EQ(cut.text,
              "Deserializer detected a malformed quota dump. Header terminator was not found.");
    EXPECT_EQ(destination.restore("limitz 0 10\n\n").text,
              "Deserializer detected a malformed quota dump header at line 0: 'limitz 0 10'. "
              "Signature was not recognized");
    EXPECT_EQ(destination.restore("limits 0 99999999999999999999\n\n").text,
              "Deserializer detected a malformed quota dump header at line 0: "
              "'limits 0 99999999999999999999'. Examining '99999999999999999999'. "
              "Value is out\tof range");
    EXPECT_THAT(host.calls(), IsEmpty());
  });
}

TEST(RestoreQuota, SectionOutsideTheDumpIsARangeErrorOfTheRequest) {
  ScratchHost host = nodeHost();
  host.tool("/usr/sbin/qxquota");
  host.run([&] {
    Started destination;
    const Served served = destination.restore("limits 100 1\n\nbody");
    EXPECT_EQ(served.code, -1);
    EXPECT_NE(served.text, "");
    EXPECT_THAT(host.calls(), IsEmpty());
  });
}

TEST(RestoreQuota, ContainerWithoutQuotaIsAnError) {
  ScratchHost host = nodeHost();
  host.tool("/usr/sbin/qxquota", {.status = 6});
  host.run([] {
    Started destination;
    const Served served = destination.restore("limits 0 0\ngraces 0 0\n\n");
    EXPECT_EQ(served.code, -1);
    EXPECT_EQ(served.text, "Quota is not enabled");
  });
}

TEST(RestoreQuota, FailedCommandIsAnError) {
  ScratchHost host = nodeHost();
  host.tool("/usr/sbin/qxquota", {.script = "if [ $1 = setlimit2 ]; then echo no >&2; exit 1; fi"});
  host.run([] {
    Started destination;
    EXPECT_EQ(destination.restore("limits 0 0\n\n").text,
              "Error running 'qxquota setlimit2 101 -tu 0 0':\nno\n");
  });
}
