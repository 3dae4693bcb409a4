#include "quota/quota_phys.h"

#include <sys/stat.h>

#include <cstring>

#include "expand/files.h"
#include "expand/strings.h"
#include "quota/command.h"
#include "quota/formatted.h"
#include "quota/mtab.h"
#include "quota/quota_diff.h"
#include "quota/quota_report.h"

namespace QuotaMgmt {

namespace {

constexpr char kMtab[] = "/etc/mtab";

bool isSameFile(const std::string& path, const struct stat& wanted) {
  struct stat found;
  return stat(path.c_str(), &found) == 0 && found.st_dev == wanted.st_dev &&
         found.st_ino == wanted.st_ino;
}

int getKind(char letter, const std::string& mountPoint, std::string& limits, std::string& graces) {
  if (runChecked(formatted("repquota -%cn %s", letter, mountPoint.c_str()), &limits) != 0)
    return -1;
  // With cat for an editor edquota prints the table that it would have edited.
  return runChecked(formatted("VISUAL=cat EDITOR=cat edquota -%ctf %s", letter, mountPoint.c_str()),
                    &graces);
}

// The commands take the mount point without quotes, and whoever may mount something
// chooses its name.
int checkMountPoint(const std::string& mountPoint) {
  if (Expand::is_shell_word(mountPoint)) return 0;
  return fail("Mount point '%s' holds characters that cannot be passed to a command",
              mountPoint.c_str());
}

int putKind(char letter, const std::string& mountPoint, const Quotas& current, const Quotas& wanted,
            const Quotas& graces) {
  Quotas toClear, toSet;
  quota_mkdiff(&current, &wanted, &toClear, &toSet);
  for (const auto& [id, quota] : toClear.entries) {
    if (runChecked(formatted("setquota -%c %u 0 0 0 0 %s", letter, id, mountPoint.c_str()),
                   nullptr) != 0) {
      return -1;
    }
  }
  for (const auto& [id, quota] : toSet.entries) {
    if (runChecked(formatted("setquota -%c %u %llu %llu %llu %llu %s", letter, id, quota.blockSoft,
                             quota.blockHard, quota.inodeSoft, quota.inodeHard, mountPoint.c_str()),
                   nullptr) != 0) {
      return -1;
    }
  }
  return runChecked(formatted("setquota -t%c %llu %llu %s", letter, graces.blockGrace,
                              graces.inodeGrace, mountPoint.c_str()),
                    nullptr);
}

}  // namespace

int quota_is_enabled_phys(const char* partition, bool& usr, bool& grp, std::string* mountPoint) {
  struct stat wanted;
  if (stat(partition, &wanted) != 0) {
    return fail("Partition or mount point '%s' does not exist", partition);
  }
  std::string mtab;
  if (const int error = Expand::get_file(kMtab, mtab)) {
    return fail("Error reading '%s': %s", kMtab, std::strerror(error));
  }
  for (const MountEntry& entry : parseMtab(mtab)) {
    if (!isSameFile(entry.device, wanted) && !isSameFile(entry.mountPoint, wanted)) continue;
    for (const std::string& option : entry.options) {
      if (option == "usrquota" || option == "quota") usr = true;
      if (option == "grpquota") grp = true;
    }
    *mountPoint = entry.mountPoint;
    return 0;
  }
  return fail("Partition or mount point '%s' is missing from %s", partition, kMtab);
}

int quota_get_phys(const char* partition, std::string& limits, std::string& graces) {
  bool usr = false;
  bool grp = false;
  std::string mountPoint;
  if (quota_is_enabled_phys(partition, usr, grp, &mountPoint) != 0) return -1;
  limits.clear();
  graces.clear();
  if ((usr || grp) && checkMountPoint(mountPoint) != 0) return -1;
  if (usr && getKind('u', mountPoint, limits, graces) != 0) return -1;
  if (grp && getKind('g', mountPoint, limits, graces) != 0) return -1;
  return 0;
}

int quota_put_phys(const char* partition, const Quotas& users, const Quotas& groups) {
  std::string limits, graces;
  if (quota_get_phys(partition, limits, graces) != 0) return -1;
  Quotas currentUsers, currentGroups;
  if (limits_parse_phys(limits, &currentUsers, &currentGroups) != 0) return -1;
  if (graces_parse_phys(graces, &currentUsers, &currentGroups) != 0) return -1;

  bool usr = false;
  bool grp = false;
  std::string mountPoint;
  if (quota_is_enabled_phys(partition, usr, grp, &mountPoint) != 0) return -1;
  if (!usr && !grp) return fail("Quota is not enabled");
  // It may be another one by now.
  if (checkMountPoint(mountPoint) != 0) return -1;

  // A kind that is off is left out: setquota could only refuse it. The graces of
  // both kinds are the user record's, as for a container.
  if (usr && putKind('u', mountPoint, currentUsers, users, users) != 0) return -1;
  if (grp && putKind('g', mountPoint, currentGroups, groups, users) != 0) return -1;
  return 0;
}

}  // namespace QuotaMgmt
