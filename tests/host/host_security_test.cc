#include "host/host_security.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

host::HostSecurity good() {
  host::HostSecurity security;
  security.appArmor = security.appArmorParser = security.userNamespaces = true;
  security.unified = security.delegated = true;
  return security;
}

TEST(HostSecurity, IsReadFromTheMounts) {
  const host::HostSecurity plain = host::securityOf(host::parseMountInfo(
      "30 23 0:26 / /sys/fs/cgroup rw,nosuid shared:4 - cgroup2 cgroup2 rw,nsdelegate\n"));
  EXPECT_TRUE(plain.unified);
  EXPECT_TRUE(plain.delegated);
  EXPECT_FALSE(plain.lxcfs);
  const host::HostSecurity weak = host::securityOf(host::parseMountInfo(
      "30 23 0:26 / /sys/fs/cgroup rw,nosuid shared:4 - cgroup2 cgroup2 rw\n"
      "41 28 0:37 / /var/lib/lxcfs rw shared:23 - fuse.lxcfs lxcfs rw,user_id=0\n"
      "broken - x\n"));
  EXPECT_TRUE(weak.unified);
  EXPECT_FALSE(weak.delegated);
  EXPECT_TRUE(weak.lxcfs);
}

TEST(HostSecurity, EveryWeaknessIsToldWithItsRemedy) {
  EXPECT_THAT(host::hostWarnings(good()), IsEmpty());
  host::HostSecurity security = good();
  security.appArmor = false;
  EXPECT_THAT(host::hostWarnings(security), ElementsAre(HasSubstr("apparmor=1")));
  security = good();
  security.appArmorParser = false;
  EXPECT_THAT(host::hostWarnings(security), ElementsAre(HasSubstr("package apparmor")));
  security = good();
  security.userNamespaces = false;
  EXPECT_THAT(host::hostWarnings(security), ElementsAre(HasSubstr("max_user_namespaces")));
  security = good();
  security.delegated = false;
  EXPECT_THAT(host::hostWarnings(security), IsEmpty()) << "nobody has taken it away";
  security.lxcfs = true;
  EXPECT_THAT(host::hostWarnings(security), ElementsAre(HasSubstr("remount,nsdelegate")));
}

}  // namespace
