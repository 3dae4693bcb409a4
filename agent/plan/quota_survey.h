// The disk limits of users and groups that a server's file systems hold.
#ifndef QX_AGENT_PLAN_QUOTA_SURVEY_H
#define QX_AGENT_PLAN_QUOTA_SURVEY_H

#include <cstddef>
#include <string>
#include <vector>

namespace agent {

/// The limits of one user or group: blocks of 1024 bytes and inodes; 0 is none.
struct OwnerLimits {
  bool group = false;
  long long id = 0;
  long long blockSoft = 0, blockHard = 0, inodeSoft = 0, inodeHard = 0;
};

/// More are not listed: a server has some, and an answer has a bound.
inline constexpr size_t kMostUnreported = 5000;

/// The disk quotas of one mounted file system that has some.
struct SurveyedQuotas {
  std::string mountPoint;
  long long users = 0, groups = 0;  ///< so many have limits
  /// Seconds that a soft limit may be exceeded.
  long long userBlockGrace = 0, userInodeGrace = 0, groupBlockGrace = 0, groupInodeGrace = 0;
  /// Of the root file system: limits that the server's report of its quotas leaves out, as
  /// their owners own nothing, or as the mount options do not say that there are quotas. The
  /// migration reads the report.
  std::vector<OwnerLimits> unreported;
  long long unlisted = 0;     ///< so many more of them are not in the list
  bool accountsOnly = false;  ///< the kernel could be asked for known accounts only
};

/// What the kernel has for one owner, and whether it owns anything.
struct KernelLimits {
  OwnerLimits limits;
  bool owns = false;
};

/// Adds what the kernel says of one owner. `reported`: the report has this kind.
void addOwner(const KernelLimits& owner, bool reported, SurveyedQuotas& quotas);

/// Whether the report has users or groups, by the mount options.
bool reportsKind(const std::string& options, bool group);

/// Asks the kernel for the quotas of the file system mounted at `mountPoint` from `device`.
/// `users` and `groups` receive what it has; false when it has no quotas. Quotas of the
/// file system "/" are listed where they are not reported.
bool surveyQuotas(const std::string& device, const std::string& mountPoint,
                  const std::string& options, SurveyedQuotas& quotas);

}  // namespace agent

#endif
