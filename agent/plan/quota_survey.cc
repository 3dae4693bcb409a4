#include "agent/plan/quota_survey.h"

#include <linux/quota.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <optional>
#include <set>
#include <sstream>

#include "host/accounts.h"
#include "host/file.h"

namespace agent {

namespace {

// What a device's quotas are, by the call that every kernel has.
class Kernel {
 public:
  Kernel(std::string device, bool group) : device_(std::move(device)), group_(group) {}

  bool isOn() const {
    unsigned format = 0;
    return call(Q_GETFMT, 0, &format) == 0;
  }

  void graces(long long& blocks, long long& inodes) const {
    if_dqinfo info{};
    if (call(Q_GETINFO, 0, &info) != 0) return;
    blocks = static_cast<long long>(info.dqi_bgrace);
    inodes = static_cast<long long>(info.dqi_igrace);
  }

  // The first owner from `id` on that the kernel knows. False at the end, with errno
  // ENOENT or ESRCH, or when it cannot tell (before Linux 4.6).
  bool next(uint32_t id, KernelLimits& owner) const {
    if_nextdqblk entry{};
    if (call(Q_GETNEXTQUOTA, id, &entry) != 0) return false;
    owner = toLimits(entry.dqb_id, entry);
    return true;
  }

  std::optional<KernelLimits> of(uint32_t id) const {
    if_dqblk entry{};
    if (call(Q_GETQUOTA, id, &entry) != 0) return std::nullopt;
    return toLimits(id, entry);
  }

 private:
  int call(unsigned command, uint32_t id, void* data) const {
    return static_cast<int>(
        syscall(SYS_quotactl, QCMD(command, static_cast<unsigned>(group_ ? GRPQUOTA : USRQUOTA)),
                device_.c_str(), id, data));
  }

  template <class Entry>
  KernelLimits toLimits(uint32_t id, const Entry& entry) const {
    const auto number = [](uint64_t value) {
      constexpr auto kMost = static_cast<uint64_t>(std::numeric_limits<long long>::max());
      return static_cast<long long>(value < kMost ? value : kMost);
    };
    return {{group_, id, number(entry.dqb_bsoftlimit), number(entry.dqb_bhardlimit),
             number(entry.dqb_isoftlimit), number(entry.dqb_ihardlimit)},
            entry.dqb_curspace != 0 || entry.dqb_curinodes != 0};
  }

  std::string device_;
  bool group_;
};

// The ids in /etc/passwd or /etc/group.
std::set<uint32_t> accounts(bool group) {
  return host::parseAccountIds(host::readFile(group ? "/etc/group" : "/etc/passwd").value_or(""));
}

void surveyOwners(const Kernel& kernel, bool group, bool reported, SurveyedQuotas& quotas) {
  KernelLimits owner;
  for (uint32_t id = 0;;) {
    errno = 0;
    if (!kernel.next(id, owner)) break;
    addOwner(owner, reported, quotas);
    if (owner.limits.id >= std::numeric_limits<uint32_t>::max()) return;
    id = static_cast<uint32_t>(owner.limits.id) + 1;
  }
  if (errno == ENOENT || errno == ESRCH) return;
  quotas.accountsOnly = true;
  for (const uint32_t id : accounts(group)) {
    if (const auto found = kernel.of(id)) addOwner(*found, reported, quotas);
  }
}

// "/dev/root" and its kin are in mount tables and not in /dev.
std::string deviceOf(const std::string& named, const std::string& mountPoint) {
  struct stat mounted, device;
  if (stat(mountPoint.c_str(), &mounted) != 0) return "";
  if (stat(named.c_str(), &device) == 0 && S_ISBLK(device.st_mode) &&
      device.st_rdev == mounted.st_dev) {
    return named;
  }
  return "/dev/block/" + std::to_string(major(mounted.st_dev)) + ":" +
         std::to_string(minor(mounted.st_dev));
}

}  // namespace

void addOwner(const KernelLimits& owner, bool reported, SurveyedQuotas& quotas) {
  const OwnerLimits& limits = owner.limits;
  if (!limits.blockSoft && !limits.blockHard && !limits.inodeSoft && !limits.inodeHard) return;
  ++(limits.group ? quotas.groups : quotas.users);
  if (quotas.mountPoint != "/" || (reported && owner.owns)) return;
  if (quotas.unreported.size() < kMostUnreported) {
    quotas.unreported.push_back(limits);
  } else {
    ++quotas.unlisted;
  }
}

bool reportsKind(const std::string& options, bool group) {
  std::istringstream words(options);
  for (std::string word; std::getline(words, word, ',');) {
    if (group ? word == "grpquota" : word == "usrquota" || word == "quota") return true;
  }
  return false;
}

bool surveyQuotas(const std::string& device, const std::string& mountPoint,
                  const std::string& options, SurveyedQuotas& quotas) {
  quotas.mountPoint = mountPoint;
  const std::string asked = deviceOf(device, mountPoint);
  bool any = false;
  for (const bool group : {false, true}) {
    const Kernel kernel(asked, group);
    if (!kernel.isOn()) continue;
    any = true;
    kernel.graces(group ? quotas.groupBlockGrace : quotas.userBlockGrace,
                  group ? quotas.groupInodeGrace : quotas.userInodeGrace);
    surveyOwners(kernel, group, reportsKind(options, group), quotas);
  }
  return any;
}

}  // namespace agent
