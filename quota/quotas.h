// Records of disk quotas.
#ifndef QX_QUOTA_QUOTAS_H
#define QX_QUOTA_QUOTAS_H

#include <map>

namespace QuotaMgmt {

/// The limits of one user or group. Blocks are of 1024 bytes, graces in seconds;
/// 0 is no limit. What is in use is not kept.
struct Quota {
  unsigned long long blockSoft = 0;
  unsigned long long blockHard = 0;
  unsigned long long blockGrace = 0;
  unsigned long long inodeSoft = 0;
  unsigned long long inodeHard = 0;
  unsigned long long inodeGrace = 0;

  bool operator==(const Quota&) const = default;
};

/// The quotas of one kind, users or groups: by numeric id, ascending, and the
/// grace periods of the whole kind in seconds.
struct Quotas {
  std::map<unsigned, Quota> entries;
  unsigned long long blockGrace = 0;
  unsigned long long inodeGrace = 0;
};

}  // namespace QuotaMgmt

#endif
