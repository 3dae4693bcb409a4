#include "node/resources.h"

#include <algorithm>
#include <array>

#include "host/error.h"
#include "host/text.h"

namespace node {
namespace {

/// How a record's limit is told to the kernel.
enum class Unit {
  kCount,   ///< as it is; unlimited is "max"
  kBytes,   ///< as it is; unlimited is "max", and "-1" to the first generation
  kShares,  ///< of 1024, where the record has 1000 by default
  kWeight,  ///< of 100, where the record has 1000 by default
  kPtys,    ///< as it is; LXC limits the number of pseudo terminals itself
};

struct Mapping {
  const char* record;
  const char* controller;  ///< nullptr: no control group, `v1` is LXC's own key
  const char* v1;
  Unit v1Unit;
  const char* v2;
  Unit v2Unit;
};

/// Tasks are what the kernel counts: each thread is one.
constexpr std::array kMappings{
    Mapping{"NUMPROC", "pids", "lxc.cgroup.pids.max", Unit::kCount, "lxc.cgroup2.pids.max",
            Unit::kCount},
    Mapping{"SLMMEMORYLIMIT", "memory", "lxc.cgroup.memory.limit_in_bytes", Unit::kBytes,
            "lxc.cgroup2.memory.max", Unit::kCount},
    Mapping{"CPUUNITS", "cpu", "lxc.cgroup.cpu.shares", Unit::kShares, "lxc.cgroup2.cpu.weight",
            Unit::kWeight},
    Mapping{"NUMPTY", nullptr, "lxc.pty.max", Unit::kPtys, nullptr, Unit::kPtys},
};

/// Records that today's kernels have no counterpart of, or that the container's
/// own file system would have to hold.
constexpr std::array kUnenforced{
    "AVNUMPROC",    "NUMTCPSOCK",  "NUMOTHERSOCK", "NUMFILE",     "DCACHESIZE",  "KMEMSIZE",
    "TCPSNDBUF",    "TCPRCVBUF",   "OTHERSOCKBUF", "DGRAMRCVBUF", "VMGUARPAGES", "PRIVVMPAGES",
    "OOMGUARPAGES", "LOCKEDPAGES", "SHMPAGES",     "PHYSPAGES",   "NUMFLOCK",    "NUMSIGINFO",
    "NUMIPTENT",    "DISKSPACE",   "DISKINODES",   "QUOTATIME"};

std::string kernelText(Unit unit, uint64_t limit) {
  const bool unlimited = limit >= kUnlimited;
  const auto number = [](uint64_t value) { return std::to_string(value); };
  // Far beyond any weight, so that products stay in range.
  const uint64_t weight = std::min<uint64_t>(limit, 1'000'000'000);
  switch (unit) {
    case Unit::kCount:
      return unlimited ? "max" : number(limit);
    case Unit::kBytes:
      return unlimited ? "-1" : number(limit);
    case Unit::kShares:
      return number(std::clamp<uint64_t>(weight * 1024 / 1000, 2, 262144));
    case Unit::kWeight:
      return number(std::clamp<uint64_t>(weight / 10, 1, 10000));
    case Unit::kPtys:
      return number(std::min<uint64_t>(limit, 65536));
  }
  return {};
}

std::optional<uint64_t> parseNumber(std::string_view text) {
  if (text == "unlimited") return kUnlimited;
  if (text.empty() || text.find_first_not_of("0123456789") != text.npos) return std::nullopt;
  return std::min(parseDecimal(text).value_or(kUnlimited), kUnlimited);
}

std::optional<Limit> planOne(const Mapping& mapping, uint64_t limit, const CgroupLayout& layout) {
  if (mapping.controller == nullptr || layout.v1.contains(mapping.controller)) {
    return Limit{mapping.record, mapping.v1, kernelText(mapping.v1Unit, limit)};
  }
  if (layout.v2.contains(mapping.controller)) {
    return Limit{mapping.record, mapping.v2, kernelText(mapping.v2Unit, limit)};
  }
  return std::nullopt;
}

}  // namespace

std::optional<ResourceValue> parseResource(std::string_view text) {
  const size_t colon = text.find(':');
  const std::optional<uint64_t> first = parseNumber(text.substr(0, colon));
  if (colon == text.npos) {
    if (!first) return std::nullopt;
    return ResourceValue{*first, *first};
  }
  const std::optional<uint64_t> second = parseNumber(text.substr(colon + 1));
  if (!first || !second) return std::nullopt;
  return ResourceValue{*first, *second};
}

std::optional<ResourceValue> recordOf(const Container& container, const char* record) {
  const std::string text = container.var(record);
  if (text.empty()) return std::nullopt;
  const std::optional<ResourceValue> value = parseResource(text);
  if (!value) {
    fail(ExitCode::kBadConfig,
         "%s of container %u is neither a number nor two separated by ':': '%s'", record,
         container.id, text.c_str());
  }
  return value;
}

ResourcePlan planResources(const Container& container, const CgroupLayout& layout) {
  ResourcePlan plan;
  for (const Mapping& mapping : kMappings) {
    const std::optional<ResourceValue> value = recordOf(container, mapping.record);
    if (!value) continue;
    if (std::optional<Limit> limit = planOne(mapping, value->limit, layout)) {
      plan.limits.push_back(std::move(*limit));
    } else {
      plan.unenforced.emplace_back(mapping.record);
    }
  }
  for (const char* record : kUnenforced) {
    // No limit at all is nothing that could fail to be enforced.
    const std::optional<ResourceValue> value = recordOf(container, record);
    if (value && value->limit < kUnlimited) plan.unenforced.emplace_back(record);
  }
  return plan;
}

bool isResourceRecord(std::string_view variable) {
  return variable == "QUOTAUGIDLIMIT" ||
         std::find(kUnenforced.begin(), kUnenforced.end(), variable) != kUnenforced.end() ||
         std::any_of(kMappings.begin(), kMappings.end(),
                     [&](const Mapping& mapping) { return variable == mapping.record; });
}

}  // namespace node
