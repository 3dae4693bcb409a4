#include "node/kernel_quota.h"

#include <fcntl.h>
#include <linux/dqblk_xfs.h>
#include <linux/quota.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <limits>

#include "host/error.h"
#include "node/storage.h"

namespace node {
namespace {

constexpr QuotaKind kKinds[] = {QuotaKind::kUser, QuotaKind::kGroup};

unsigned typeOf(QuotaKind kind) { return kind == QuotaKind::kUser ? USRQUOTA : GRPQUOTA; }
const char* nameOf(QuotaKind kind) { return kind == QuotaKind::kUser ? "user" : "group"; }

/// The call that finds the file system by a descriptor and needs no device; Linux
/// has it since 5.14.
int control(const Fd& tree, unsigned command, QuotaKind kind, uint32_t id, void* data) {
  return static_cast<int>(
      syscall(SYS_quotactl_fd, tree.get(), QCMD(command, typeOf(kind)), id, data));
}

/// The kernel counts bytes in 63 bits, and refuses more.
uint64_t blockLimit(uint64_t kib) {
  constexpr uint64_t kMax = static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) / 1024;
  return std::min(kib, kMax);
}

uint64_t inodeLimit(uint64_t count) {
  return std::min(count, static_cast<uint64_t>(std::numeric_limits<int64_t>::max()));
}

QuotaLine line(uint64_t used, uint64_t soft, uint64_t hard, uint64_t until) {
  const auto now = static_cast<uint64_t>(std::time(nullptr));
  const bool counts = soft != 0 && used > soft && until > now;
  return {used, soft, hard, counts ? until - now : 0};
}

QuotaObject objectOf(const if_nextdqblk& entry) {
  return {line((entry.dqb_curspace + 1023) / 1024, entry.dqb_bsoftlimit, entry.dqb_bhardlimit,
               entry.dqb_btime),
          line(entry.dqb_curinodes, entry.dqb_isoftlimit, entry.dqb_ihardlimit, entry.dqb_itime)};
}

}  // namespace

std::optional<KernelQuota> KernelQuota::of(const Container& container) {
  if (!treeIsMounted(container.privateArea)) return std::nullopt;
  Fd tree(open(container.tree().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!tree) failErrno("cannot open %s", container.tree().c_str());
  // A file system may also count and not enforce.
  fs_quota_stat state{};
  constexpr unsigned kEnforced = FS_QUOTA_UDQ_ENFD | FS_QUOTA_GDQ_ENFD;
  if (control(tree, Q_XGETQSTAT, QuotaKind::kUser, 0, &state) != 0 ||
      (state.qs_flags & kEnforced) != kEnforced) {
    return std::nullopt;
  }
  return KernelQuota(std::move(tree));
}

QuotaTable KernelQuota::read() const {
  QuotaTable table;
  for (const QuotaKind kind : kKinds) {
    if_dqinfo info{};
    if (control(tree_, Q_GETINFO, kind, 0, &info) != 0) {
      failErrno("cannot read the grace times of %ss", nameOf(kind));
    }
    QuotaKindTable& found = table.of(kind);
    found.grace = {info.dqi_bgrace, info.dqi_igrace};
    for (uint32_t id = 0;;) {
      if_nextdqblk entry{};
      if (control(tree_, Q_GETNEXTQUOTA, kind, id, &entry) != 0) {
        if (errno == ENOENT || errno == ESRCH) break;
        failErrno("cannot read the limits of %ss", nameOf(kind));
      }
      const QuotaObject object = objectOf(entry);
      if (object.limited()) found.objects[entry.dqb_id] = object;
      if (entry.dqb_id == std::numeric_limits<uint32_t>::max()) break;
      id = entry.dqb_id + 1;
    }
  }
  return table;
}

void KernelQuota::setLimits(QuotaKind kind, uint32_t id, const QuotaObject& object) const {
  if_dqblk data{};
  data.dqb_bsoftlimit = blockLimit(object.blocks.soft);
  data.dqb_bhardlimit = blockLimit(object.blocks.hard);
  data.dqb_isoftlimit = inodeLimit(object.inodes.soft);
  data.dqb_ihardlimit = inodeLimit(object.inodes.hard);
  data.dqb_valid = QIF_LIMITS;
  if (control(tree_, Q_SETQUOTA, kind, id, &data) != 0) {
    failErrno("the kernel refuses the limits of %s %u", nameOf(kind), id);
  }
}

void KernelQuota::setGrace(QuotaKind kind, const QuotaGrace& grace) const {
  if_dqinfo data{};
  data.dqi_bgrace = grace.blocks;
  data.dqi_igrace = grace.inodes;
  data.dqi_valid = IIF_BGRACE | IIF_IGRACE;
  if (control(tree_, Q_SETINFO, kind, 0, &data) != 0) {
    failErrno("the kernel refuses the grace times of %ss", nameOf(kind));
  }
}

void KernelQuota::apply(const QuotaTable& table) const {
  const QuotaTable current = read();
  for (const QuotaKind kind : kKinds) {
    const QuotaKindTable& wanted = table.of(kind);
    for (const auto& [id, object] : current.of(kind).objects) {
      if (wanted.objects.count(id) == 0) setLimits(kind, id, QuotaObject());
    }
    for (const auto& [id, object] : wanted.objects) setLimits(kind, id, object);
    setGrace(kind, wanted.grace);
  }
}

}  // namespace node
