// qxquota: the disk limits of a container's users and groups.
#ifndef QX_NODE_QUOTA_H
#define QX_NODE_QUOTA_H

#include <string>
#include <variant>
#include <vector>

#include "host/container.h"
#include "node/host.h"
#include "node/quota_table.h"

namespace node {

/// Exit codes of qxquota. 0, 6, 9 and 10 are answers of "stat": its callers
/// read 0 and 10 as on, 6 and 9 as off. So no failure may have one of them.
enum class QuotaExit {
  kOk = 0,
  kUsage = 2,
  kOff = 6,
  kKept = 10,
  kFailed = 11,
};

struct QuotaStat {
  bool table = false;  ///< -t: print the table too
};
struct QuotaSetLimits {
  QuotaKind kind;
  uint32_t object;
  uint64_t blockSoft, blockHard, inodeSoft, inodeHard;
};
struct QuotaSetGrace {
  QuotaKind kind;
  QuotaGrace grace;
};
struct QuotaCommand {
  unsigned id = 0;
  std::variant<QuotaStat, QuotaSetLimits, QuotaSetGrace> what;
};

/// Understands the arguments after the program's name. Throws Error (kUsage).
QuotaCommand parseQuotaCommand(const std::vector<std::string>& arguments);

/// The usage text.
std::string quotaUsage();

/// Carries the command out. `output` receives what is to be printed. Throws
/// Error when the container does not exist or its table cannot be read or
/// written. Limits are replaced at once; two processes that set limits of one
/// container wait for each other.
///
/// Quotas are on unless the container's configuration (or the host's settings)
/// says DISK_QUOTA=no. QUOTAUGIDLIMIT=0 does not turn them off: every server
/// without quotas is measured to have it, and its migration must still be able
/// to set grace times on an empty table.
///
/// Limits are always kept with the container. While its tree is a mounted image on
/// which the kernel enforces quotas, they are set there too, "stat" answers kOk,
/// and its table is the kernel's. Otherwise "stat" answers kKept.
QuotaExit runQuotaCommand(const QuotaCommand& command, std::string& output);

/// Sets the kept limits and grace times on the container's file system, just
/// mounted, if that can enforce them. A failure is a warning on standard error: a
/// container without limits is better than none.
void applyKeptQuota(const Container& container);

}  // namespace node

#endif
