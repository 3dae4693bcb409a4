#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <filesystem>

#include "expand/caller.h"
#include "support/scratch_host.h"

using namespace Expand;
using namespace test_support;

namespace {

constexpr int CORE = 0x80;

// A runner as it is after a run that ended with this status.
struct Ended : CallerExec {
  Ended(pid_t pid, int status, int signal) : CallerExec("program", {}, {}, {}) {
    pid_ = pid;
    status_ = status;
    signal_ = signal;
  }
};

void expectName(const char* usesPid, const std::string& name) {
  ScratchHost host;
  host.file("/proc/sys/kernel/core_uses_pid", usesPid);
  host.run([&] { EXPECT_EQ(Ended(4242, SIGSEGV | CORE, SIGSEGV).getCoreDumpName(), name); });
}

}  // namespace

TEST(CoreDumpName, CarriesThePidWhereTheKernelAddsIt) { expectName("1\n", "core.4242"); }

TEST(CoreDumpName, IsPlainWhereTheKernelAddsNothing) { expectName("0\n", "core"); }

TEST(CoreDumpName, IsPlainWhenTheSettingIsEmpty) { expectName("", "core"); }

TEST(CoreDumpName, IsPlainWhenTheSettingCannotBeOpened) {
  ScratchHost().run([] {
    ASSERT_EQ(mount("none", "/proc/sys/kernel", "tmpfs", 0, ""), 0);
    EXPECT_EQ(Ended(4242, SIGSEGV | CORE, SIGSEGV).getCoreDumpName(), "core");
  });
}

TEST(CoreDumpName, IsEmptyWithoutACore) {
  EXPECT_EQ(Ended(4242, SIGSEGV, SIGSEGV).getCoreDumpName(), "");
}

TEST(CoreDumpName, IsEmptyWithoutAKillingSignal) {
  EXPECT_EQ(Ended(4242, CORE, 0).getCoreDumpName(), "");
}

TEST(CoreDumpName, NamesTheFileThatACrashLeaves) {
  // Where a program takes the cores, that one decides whether there is one.
  const rlimit unlimited = {RLIM_INFINITY, RLIM_INFINITY};
  const bool leavesFiles = readFile("/proc/sys/kernel/core_pattern") == "core\n" &&
                           setrlimit(RLIMIT_CORE, &unlimited) == 0;
  const TempTree tree;
  std::vector<Connector*> none = {nullptr, nullptr, nullptr};
  CallerExec runner("sh", {"-c", "kill -SEGV $$"}, {"PATH=/bin"}, {.workDir = tree.root()});
  runner.call(none);
  EXPECT_EQ(runner.exitCode(), -1);
  EXPECT_EQ(runner.killingSignal(), SIGSEGV);
  if (leavesFiles) {
    ASSERT_NE(runner.getCoreDumpName(), "");
    EXPECT_TRUE(std::filesystem::exists(tree.path(runner.getCoreDumpName())));
  }
}
