#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "support/failing_call.h"
#include "workers.h"

using namespace fixtures;
using namespace test_support;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// The system's name in the place of the kernel's; null for the kernel's.
const char* systemName = nullptr;

}  // namespace

// Takes the place of the C library's.
extern "C" int uname(struct utsname* name) noexcept {
  const int result = static_cast<int>(syscall(SYS_uname, name));
  if (result == 0 && systemName) std::strcpy(name->sysname, systemName);
  return result;
}

namespace {

const char kCompleted[] = "/var/qxagent.tmp";

ParamsPtr withServices(const std::vector<QXL::QXLService>& services) {
  const ParamsPtr params = newParams();
  params->options.services = services;
  return params;
}

std::string noRsync(const std::string& prefix) {
  return "Error running command '" + prefix +
         "/usr/local/share/qxlinmigrate/rsync --version'. "
         "Drovane rsync is not available in the system.";
}

}  // namespace

TEST(SourceInit, AsksRsyncForItsVersion) {
  ScratchHost host = serverHost();
  host.run([&] {
    const Served served = Source().start(newParams());
    EXPECT_EQ(served.code, 0) << served.text;
    EXPECT_THAT(host.calls(), ElementsAre(call(std::string(kRsync) + " --version")));
  });
}

TEST(SourceInit, RsyncIsUnderQxaTmpdir) {
  ScratchHost host;
  host.tool("/tmp/x/usr/local/share/qxlinmigrate/rsync");
  host.run([] {
    setenv("QXA_TMPDIR", "/tmp/x", 1);
    EXPECT_EQ(Source().start(newParams()).code, 0);
    setenv("QXA_TMPDIR", "/tmp/y", 1);
    EXPECT_EQ(Source().start(newParams()).text, noRsync("/tmp/y"));
    setenv("QXA_TMPDIR", "", 1);
    EXPECT_EQ(Source().start(newParams()).text, noRsync(""));
  });
}

TEST(SourceInit, RsyncThatDoesNotRunIsAnError) {
  ScratchHost().run([] {
    const Served served = Source().start(newParams());
    EXPECT_EQ(served.code, -1);
    EXPECT_EQ(served.text, noRsync(""));
  });
  for (const FakeTool& tool :
       {FakeTool{.status = 1}, FakeTool{.status = 23}, FakeTool{.script = "kill -TERM $$"}}) {
    ScratchHost host;
    host.tool(kRsync, tool);
    host.run([] { EXPECT_EQ(Source().start(newParams()).text, noRsync("")); });
  }
}

TEST(SourceInit, ExclusionListIsCompletedInPlace) {
  serverHost().run([] {
    const ParamsPtr params = newParams();
    params->options.excludes = {"/proc/*", "/a"};
    EXPECT_EQ(DirectSource().init(params).code, 0);
    EXPECT_THAT(params->options.excludes,
                ElementsAre("/a", "/proc/*", "/sys/*", "/var/log/lastlog", "/var/qxagent.tmp"));
  });
}

TEST(SourceInit, ExclusionListIsCompletedEvenWhenACheckFails) {
  ScratchHost().run([] {
    const ParamsPtr params = newParams();
    EXPECT_EQ(DirectSource().init(params).code, -1);
    EXPECT_EQ(params->options.excludes.back(), kCompleted);
  });
}

TEST(SourceInit, OtherSystemIsRefusedBeforeRsyncIsAsked) {
  ScratchHost host = serverHost();
  host.run([&] {
    failSystemCall(SYS_uname, EFAULT);
    const ParamsPtr params = newParams();
    const Served served = DirectSource().init(params);
    EXPECT_EQ(served.code, -1);
    EXPECT_EQ(served.text, "This serializer can be run only on Linux systems");
    EXPECT_EQ(params->options.excludes.back(), kCompleted);
    EXPECT_THAT(host.calls(), IsEmpty());
  });
}

TEST(SourceInit, NameOfTheSystemMustBeLinuxExactly) {
  ScratchHost host = serverHost();
  for (const char* name : {"linux", "Linu", "Linux2", "FreeBSD", "", "Linux"}) {
    host.run([&] {
      systemName = name;
      const Served served = DirectSource().init(newParams());
      const bool isLinux = std::strcmp(name, "Linux") == 0;
      EXPECT_EQ(served.text, isLinux ? "" : "This serializer can be run only on Linux systems")
          << name;
      EXPECT_EQ(host.calls().size(), isLinux ? 1u : 0u);
    });
  }
}

TEST(SourceInit, ServicesNeedTheirScripts) {
  ScratchHost host = serverHost();
  host.file("/etc/init.d/mysql", "").symlink("/etc/init.d/dangling", "nowhere");
  host.run([] {
    EXPECT_EQ(Source().start(withServices({{"mysql"}})).code, 0);
    // The blank after each name is intended.
    const Served served = Source().start(withServices({{"b"}, {"mysql"}, {"a"}, {"dangling"}}));
    EXPECT_EQ(served.code, -1);
    EXPECT_EQ(served.text, "Unable to find service(s): b a dangling ");
  });
}

TEST(SourceInit, ServicesAreTestedAfterRsync) {
  ScratchHost().run(
      [] { EXPECT_EQ(Source().start(withServices({{"missing"}})).text, noRsync("")); });
}
