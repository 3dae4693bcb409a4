#include "host/host_security.h"

#include "host/file.h"
#include "host/text.h"

namespace host {

HostSecurity securityOf(const std::vector<MountInfo>& mounts) {
  HostSecurity security;
  for (const MountInfo& mount : mounts) {
    if (mount.type == "cgroup2") {
      security.unified = true;
      security.delegated = security.delegated || mount.hasOption("nsdelegate");
    }
    if (mount.type == "fuse.lxcfs") security.lxcfs = true;
  }
  return security;
}

HostSecurity readHostSecurity() {
  HostSecurity security = securityOf(parseMountInfo(readFile("/proc/self/mountinfo").value_or("")));
  security.appArmor =
      readFile("/sys/module/apparmor/parameters/enabled").value_or("").starts_with('Y');
  security.appArmorParser = exists("/sbin/apparmor_parser") || exists("/usr/sbin/apparmor_parser");
  std::string most = readFile("/proc/sys/user/max_user_namespaces").value_or("0");
  while (most.ends_with('\n')) most.pop_back();
  security.userNamespaces = exists("/proc/self/ns/user") && parseDecimal(most).value_or(0) > 0;
  return security;
}

std::vector<std::string> hostWarnings(const HostSecurity& security) {
  std::vector<std::string> warnings;
  if (!security.appArmor) {
    warnings.emplace_back(
        "AppArmor is off: the root of a privileged container can reach the host's "
        "kernel; start the kernel with 'apparmor=1 security=apparmor'");
  } else if (!security.appArmorParser) {
    warnings.emplace_back(
        "AppArmor is on, but apparmor_parser is missing, without which no container starts; "
        "install the package apparmor");
  }
  if (!security.userNamespaces) {
    warnings.emplace_back(
        "the kernel gives no user namespaces: UNPRIVILEGED=yes cannot work; set "
        "user.max_user_namespaces with sysctl, or use a kernel that has them");
  }
  if (security.unified && !security.delegated && security.lxcfs) {
    warnings.emplace_back(
        "lxcfs has taken 'nsdelegate' off the control groups; 'mount -o remount,nsdelegate "
        "/sys/fs/cgroup' after each start of lxcfs, or 'systemctl disable --now lxcfs'");
  }
  return warnings;
}

}  // namespace host
