#include "host/resources.h"

#include <algorithm>
#include <cctype>

#include "host/error.h"
#include "host/text.h"

namespace host {
namespace {

/// Tasks are what the kernel counts as processes: each thread is one.
constexpr Resource kResources[] = {
    {"numproc",
     "",
     "processes and threads",
     "",
     Holder::kKernel,
     {"pids", "lxc.cgroup.pids.max", LimitScale::kCount, "lxc.cgroup2.pids.max",
      LimitScale::kCount}},
    {"avnumproc", "", "processes on average", ""},
    {"numtcpsock", "", "TCP sockets", ""},
    {"numothersock", "", "other sockets", ""},
    {"numpty",
     "",
     "pseudo terminals",
     "",
     Holder::kKernel,
     {nullptr, "lxc.pty.max", LimitScale::kPtys, nullptr, LimitScale::kPtys}},
    {"numfile", "", "open files", ""},
    {"dcachesize", "bytes", "directory cache", "from numfile"},
    {"kmemsize", "bytes", "memory of the kernel", "from numproc, dcachesize"},
    {"tcpsndbuf", "bytes", "send buffers of TCP sockets", "from numtcpsock"},
    {"tcprcvbuf", "bytes", "receive buffers of TCP sockets", "from numtcpsock"},
    {"othersockbuf", "bytes", "buffers of other sockets", "from numothersock"},
    {"dgramrcvbuf", "bytes", "receive buffers of datagram sockets", ""},
    {"vmguarpages", "pages", "guaranteed memory", ""},
    {"privvmpages", "pages", "private memory", ""},
    {"oomguarpages", "pages", "memory that is safe when memory runs out", ""},
    {"lockedpages", "pages", "locked memory", ""},
    {"shmpages", "pages", "shared memory", ""},
    {"physpages", "pages", "memory in use", ""},
    {"numflock", "", "file locks", ""},
    {"numsiginfo", "", "pending signals", ""},
    {"numiptent", "", "packet filter rules", ""},
    {"diskspace", "KiB", "disk space", "", Holder::kFileSystem},
    {"diskinodes", "", "files", "", Holder::kFileSystem},
    {"cpuunits",
     "",
     "weight of its processor time",
     "",
     Holder::kKernel,
     {"cpu", "lxc.cgroup.cpu.shares", LimitScale::kShares, "lxc.cgroup2.cpu.weight",
      LimitScale::kWeight}},
    {"quotatime", "", "seconds over the soft disk limit", "", Holder::kFileSystem},
    {"quotaugidlimit", "", "users and groups with disk limits", "", Holder::kQuota},
    {"slmmemorylimit",
     "bytes",
     "memory",
     "from memory and buffers",
     Holder::kKernel,
     {"memory", "lxc.cgroup.memory.limit_in_bytes", LimitScale::kBytes, "lxc.cgroup2.memory.max",
      LimitScale::kCount}},
};

std::optional<uint64_t> parseNumber(std::string_view text) {
  if (text == "unlimited") return kUnlimited;
  if (text.empty() || text.find_first_not_of("0123456789") != text.npos) return std::nullopt;
  return std::min(parseDecimal(text).value_or(kUnlimited), kUnlimited);
}

}  // namespace

std::span<const Resource> resources() { return kResources; }

const Resource* findResource(std::string_view record) {
  for (const Resource& resource : kResources) {
    if (record == recordName(resource)) return &resource;
  }
  return nullptr;
}

std::string recordName(const Resource& resource) {
  std::string record = resource.name;
  for (char& c : record) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
  return record;
}

std::optional<ResourceValue> parseResource(std::string_view text) {
  const size_t colon = text.find(':');
  const std::optional<uint64_t> first = parseNumber(text.substr(0, colon));
  if (colon == text.npos) {
    if (!first) return std::nullopt;
    return ResourceValue{*first, *first, false};
  }
  const std::optional<uint64_t> second = parseNumber(text.substr(colon + 1));
  if (!first || !second) return std::nullopt;
  return ResourceValue{*first, *second, true};
}

std::optional<ResourceValue> recordOf(const Container& container, const std::string& record) {
  const std::string text = container.var(record.c_str());
  if (text.empty()) return std::nullopt;
  const std::optional<ResourceValue> value = parseResource(text);
  if (!value) {
    fail(ExitCode::kBadConfig,
         "%s of container %u is neither a number nor two separated by ':': '%s'", record.c_str(),
         container.id, text.c_str());
  }
  return value;
}

}  // namespace host
