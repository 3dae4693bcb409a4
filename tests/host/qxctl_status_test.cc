#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "framework/qxctl.h"
#include "host/file.h"
#include "host/state.h"
#include "host/text.h"
#include "node/engine.h"
#include "support/container_101.h"
#include "support/scratch_host.h"

namespace {

using test_support::kConf;
using test_support::kTree;
using test_support::ScratchHost;

unsigned maskOf(unsigned ctid, int asked = 255) {
  qxctl_env_status_t status{99};
  EXPECT_EQ(qxctl_get_env_status(ctid, &status, asked), 0);
  return status.mask;
}

TEST(QxctlGetEnvStatus, ExistsMeansBothPrivateAreaAndConfiguration) {
  ScratchHost().run([] { EXPECT_EQ(maskOf(101), 0u); });
  ScratchHost().file(kConf, "").run([] { EXPECT_EQ(maskOf(101), 0u); });
  ScratchHost().dir(kTree).run([] { EXPECT_EQ(maskOf(101), 0u); });
  ScratchHost().file(kConf, "").dir(kTree).run([] { EXPECT_EQ(maskOf(101), QXCTL_STATUS_EXISTS); });
}

TEST(QxctlGetEnvStatus, TellsMountedAndRunningAndOnlyWhatIsAsked) {
  ScratchHost().file(kConf, "").dir(kTree).dir("/run/qx").run([] {
    node::mountContainer(host::loadContainer(101));
    EXPECT_EQ(maskOf(101), QXCTL_STATUS_EXISTS | QXCTL_STATUS_MOUNTED);
    const auto stat = host::readFile(host::textf("/proc/%d/stat", getpid()));
    host::replaceFile("/run/qx/101.init",
                      host::textf("%d %llu\n", getpid(), host::parseStartTime(*stat).value()),
                      0644);
    EXPECT_EQ(maskOf(101), 7u);
    EXPECT_EQ(maskOf(101, QXCTL_STATUS_MOUNTED), QXCTL_STATUS_MOUNTED);
    EXPECT_EQ(maskOf(101, 0), 0u);
    EXPECT_EQ(maskOf(102), 0u);
  });
}

TEST(QxctlGetEnvStatus, PrivateAreaIsWhereTheConfigurationSays) {
  ScratchHost().file(kConf, "VE_PRIVATE=/vz/$VEID\n").dir("/vz/101/fs").run([] {
    EXPECT_EQ(maskOf(101), QXCTL_STATUS_EXISTS);
  });
}

TEST(QxctlGetEnvStatus, MalformedConfigurationDoesNotMakeAContainerLookFree) {
  ScratchHost().file(kConf, "VE_PRIVATE=\"\n").dir(kTree).run([] {
    EXPECT_EQ(maskOf(101), QXCTL_STATUS_EXISTS);
  });
}

TEST(QxctlGetEnvStatus, InvalidArgumentsLeaveTheAnswerUntouched) {
  qxctl_env_status_t status{99};
  errno = 0;
  EXPECT_EQ(qxctl_get_env_status(0, &status, 255), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(qxctl_get_env_status(4294967295u, &status, 255), -1);
  EXPECT_EQ(qxctl_get_env_status(101, nullptr, 255), -1);
  EXPECT_EQ(status.mask, 99u);
}

}  // namespace
