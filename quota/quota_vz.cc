#include "quota/quota_vz.h"

#include "quota/command.h"
#include "quota/formatted.h"
#include "quota/quota_diff.h"
#include "quota/quota_vz_stat.h"

namespace QuotaMgmt {

namespace {

// Exit codes of "qxquota stat".
enum {
  kStatOn = 0,
  kStatOff = 6,
  kStatNotCounting = 9,  // off, but "stat -t" prints what is stored
  kStatStored = 10       // on: the limits are stored and not yet in force
};

int putKind(unsigned ctid, char letter, const Quotas& current, const Quotas& wanted,
            const Quotas& graces) {
  Quotas toClear, toSet;
  quota_mkdiff(&current, &wanted, &toClear, &toSet);
  for (const auto& [id, quota] : toClear.entries) {
    if (runChecked(formatted("qxquota setlimit2 %u -%c %u 0 0 0 0", ctid, letter, id), nullptr) !=
        0) {
      return -1;
    }
  }
  for (const auto& [id, quota] : toSet.entries) {
    if (runChecked(formatted("qxquota setlimit2 %u -%c %u %llu %llu %llu %llu", ctid, letter, id,
                             quota.blockSoft, quota.blockHard, quota.inodeSoft, quota.inodeHard),
                   nullptr) != 0) {
      return -1;
    }
  }
  return runChecked(formatted("qxquota setlimit2 %u -t%c %llu %llu", ctid, letter,
                              graces.blockGrace, graces.inodeGrace),
                    nullptr);
}

}  // namespace

int quota_is_enabled_vz(unsigned ctid, bool& on) {
  on = false;
  const std::string command = formatted("qxquota stat %u", ctid);
  CommandResult result;
  if (runCommand(command, result) != 0) return -1;
  switch (result.exitCode) {
    case kStatOn:
    case kStatStored:
      on = true;
      return 0;
    case kStatOff:
    case kStatNotCounting:
      return 0;
    default:
      return failCommand(command, result);
  }
}

int quota_get_vz(unsigned ctid, std::string& out) {
  bool on = false;
  if (quota_is_enabled_vz(ctid, on) != 0) return -1;
  if (!on) return 0;
  const std::string command = formatted("qxquota stat %u -t", ctid);
  CommandResult result;
  if (runCommand(command, result) != 0) return -1;
  switch (result.exitCode) {
    case kStatOn:
    case kStatNotCounting:
    case kStatStored:
      out = result.output;
      return 0;
    default:
      return failCommand(command, result);
  }
}

int quota_put_vz(unsigned ctid, const Quotas& users, const Quotas& groups) {
  std::string text;
  if (quota_get_vz(ctid, text) != 0) return -1;
  Quotas currentUsers, currentGroups;
  if (quota_parse_vz(text, &currentUsers, &currentGroups) != 0) return -1;

  bool on = false;
  if (quota_is_enabled_vz(ctid, on) != 0) return -1;
  if (!on) return fail("Quota is not enabled");

  // Both kinds get the graces of the user record; the group record's own are not
  // used. Containers have always been given one pair for both, so it must stay.
  if (putKind(ctid, 'u', currentUsers, users, users) != 0) return -1;
  return putKind(ctid, 'g', currentGroups, groups, users);
}

}  // namespace QuotaMgmt
