#include "node/limits.h"

#include <fcntl.h>

#include "host/fd.h"
#include "host/file.h"
#include "host/text.h"
#include "node/host.h"

namespace node {
namespace {

/// "lxc.cgroup.pids.max" is the file "pids.max", as "lxc.cgroup2.pids.max" is.
std::optional<std::string> fileOf(const CgroupLayout& layout, unsigned id, pid_t init,
                                  const Limit& limit) {
  for (const std::string_view prefix : {"lxc.cgroup.", "lxc.cgroup2."}) {
    if (limit.key.starts_with(prefix)) {
      return limitFile(layout, id, init, limit.key.substr(prefix.size()));
    }
  }
  return std::nullopt;
}

}  // namespace

bool isInGroups(const Limit& limit) { return limit.key.starts_with("lxc.cgroup"); }

std::optional<std::string> heldLimit(const CgroupLayout& layout, unsigned id, pid_t init,
                                     const Limit& limit) {
  const std::optional<std::string> path = fileOf(layout, id, init, limit);
  std::optional<std::string> text = path ? readFile(*path) : std::nullopt;
  if (text && text->ends_with('\n')) text->pop_back();
  return text;
}

bool isHeld(const Limit& limit, const std::string& held) {
  if (held == limit.value) return true;
  const std::optional<uint64_t> found = parseDecimal(held);
  if (!found) return false;
  constexpr uint64_t kPage = 4096;
  // The greatest number of whole pages.
  if (limit.value == "-1") return *found >= kUnlimited - kPage;
  const std::optional<uint64_t> wanted = parseDecimal(limit.value);
  return wanted && limit.key.find(".memory.") != limit.key.npos && *found <= *wanted &&
         *wanted - *found < kPage;
}

bool setLimit(const CgroupLayout& layout, unsigned id, pid_t init, const Limit& limit) {
  if (!isInGroups(limit)) return true;
  const std::optional<std::string> path = fileOf(layout, id, init, limit);
  if (!path) return false;
  const Fd file(open(path->c_str(), O_WRONLY | O_CLOEXEC));
  return file && writeAll(file.get(), limit.value);
}

}  // namespace node
