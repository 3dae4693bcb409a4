// The disk limits that the kernel enforces on a container's own file system.
#ifndef QX_NODE_KERNEL_QUOTA_H
#define QX_NODE_KERNEL_QUOTA_H

#include <optional>
#include <string>

#include "host/container.h"
#include "host/fd.h"
#include "node/host.h"
#include "node/quota_table.h"

namespace node {

/// The quotas of the mounted image that is a container's tree. The ids are those
/// of the file system, which are the guest's.
///
/// A directory of the host's own file system is never touched, whatever quotas
/// that one has: they are other people's.
class KernelQuota {
 public:
  /// Nothing unless the tree is an image that is mounted, and the kernel enforces
  /// limits of users and of groups on it. Throws Error.
  static std::optional<KernelQuota> of(const Container& container);

  /// Grace times, and who has limits, with what is used. Throws Error.
  QuotaTable read() const;
  /// All limits 0 is no limit. Throws Error.
  void setLimits(QuotaKind kind, uint32_t id, const QuotaObject& object) const;
  void setGrace(QuotaKind kind, const QuotaGrace& grace) const;
  /// Makes limits and grace times equal to the table's. Throws Error.
  void apply(const QuotaTable& table) const;

 private:
  explicit KernelQuota(Fd tree) : tree_(std::move(tree)) {}

  Fd tree_;
};

}  // namespace node

#endif
