#include "hwcalc/memory_table.h"

#include <algorithm>
#include <cmath>

namespace hwcalc {

namespace {

// The objects of keys are told apart by the upper bits, which no inode number has:
// an inode number with its device and offset for a place; no object, with the
// address; or a process's own memory, with the address.
constexpr std::uint64_t kNoObject = UINT64_MAX;
constexpr std::uint64_t kOwnMemory = std::uint64_t{1} << 63;

bool isOwnMemory(const map_idx_t& key) {
  return key.object != kNoObject && (key.object & kOwnMemory) != 0;
}

bool hasObject(const MapsLine& line) { return line.device != 0 || line.inode != 0; }

bool isPrivateWritable(const MapsLine& line) {
  if ((line.flags & MAP_FLAG_WRITE) == 0) return false;
  return (line.flags & MAP_FLAG_SHARED) == 0 || !hasObject(line);
}

map_idx_t keyOf(std::uint32_t process, const MapsLine& line) {
  if (isPrivateWritable(line)) return {kOwnMemory | process, line.start};
  // Without an object only the address tells one mapping from another. Processes
  // that are not related have different ones, as the kernel chooses them at random;
  // where it does not, memory that nobody may write is no loss.
  if (!hasObject(line)) return {kNoObject, line.start};
  const std::uint64_t page = line.offset / kMapsPageSize;
  return {line.inode & ~kOwnMemory, std::uint64_t{line.device} << 32 | (page & UINT32_MAX)};
}

// The share of a mapping of which some pages count half. Never rounded down: the
// product with the size must not lose a page when it is truncated.
float shareOf(std::uint64_t pages, std::uint64_t inherited) {
  const double all = static_cast<double>(pages);
  const double wanted = all - static_cast<double>(inherited) / 2;
  const float share = static_cast<float>(wanted / all);
  return all * share < wanted ? std::nextafter(share, 1.0f) : share;
}

// Walks the private writable mappings of a process, in the order of the addresses.
class OwnMemory {
 public:
  OwnMemory(const proc_info_t& process,
            const std::unordered_map<map_idx_t, map_info_t, MapIdxHash>& mappings)
      : at_(process.maps.begin()), end_(process.maps.end()), mappings_(mappings) {
    settle();
  }
  bool done() const { return at_ == end_; }
  void next() {
    ++at_;
    settle();
  }
  const map_idx_t& key() const { return *at_; }
  std::uint64_t start() const { return at_->place; }
  std::uint64_t pages() const { return pages_; }
  std::uint64_t end() const { return start() + pages_ * kMapsPageSize; }

 private:
  void settle() {
    while (at_ != end_ && !isOwnMemory(*at_)) ++at_;
    if (at_ != end_) pages_ = mappings_.at(*at_).pages;
  }

  std::vector<map_idx_t>::const_iterator at_;
  std::vector<map_idx_t>::const_iterator end_;
  const std::unordered_map<map_idx_t, map_info_t, MapIdxHash>& mappings_;
  std::uint64_t pages_ = 0;
};

}  // namespace

std::size_t MapIdxHash::operator()(const map_idx_t& key) const {
  // Multiplication spreads the low bits up, the shift brings the high ones back.
  const std::uint64_t mixed = (key.object * 0x9e3779b97f4a7c15u ^ key.place) * 0xd6e8feb86659fd93u;
  return static_cast<std::size_t>(mixed ^ mixed >> 32);
}

void MemoryTable::add(std::uint32_t id, const ProcStatus& status,
                      const std::vector<MapsLine>& maps) {
  proc_info_t& process = processes_[id];
  process.name = status.name;
  process.parent = status.parent;
  process.resident = status.resident;
  process.locked = status.locked;
  process.maps.reserve(maps.size());
  for (const MapsLine& line : maps) {
    const map_idx_t key = keyOf(id, line);
    process.maps.push_back(key);
    map_info_t& info = mappings_[key];
    info.pages = std::max(info.pages, line.pages);
    info.flags |= line.flags;
  }
}

void MemoryTable::link() {
  for (const auto& [id, process] : processes_) {
    const auto parent = processes_.find(process.parent);
    if (parent == processes_.end() || parent->first == id) continue;
    if (parent->second.name == process.name) linkTo(parent->second, process);
  }
}

void MemoryTable::linkTo(const proc_info_t& parent, const proc_info_t& child) {
  OwnMemory theirs(parent, mappings_);
  for (OwnMemory own(child, mappings_); !own.done(); own.next()) {
    std::uint64_t inherited = 0;
    while (!theirs.done() && theirs.end() <= own.start()) theirs.next();
    // A mapping of the parent may reach into the child's next one: it stays.
    for (OwnMemory other = theirs; !other.done() && other.start() < own.end(); other.next()) {
      const std::uint64_t first = std::max(own.start(), other.start());
      const std::uint64_t last = std::min(own.end(), other.end());
      // The kernel's ranges are in order and do not overlap; a bad file's may.
      if (first < last) inherited += (last - first) / kMapsPageSize;
    }
    inherited = std::min(inherited, own.pages());
    if (inherited != 0) mappings_.at(own.key()).share = shareOf(own.pages(), inherited);
  }
}

std::uint32_t MemoryTable::privatePages() const {
  constexpr std::uint64_t kLargest = 2147483647;
  std::uint64_t sum = 0;
  for (const auto& [key, info] : mappings_) {
    // In double precision, so that large sizes with the factor 1.0 stay exact.
    sum += static_cast<std::uint64_t>(static_cast<double>(info.pages) * info.share);
    if (sum > kLargest) return kLargest;
  }
  return static_cast<std::uint32_t>(sum);
}

std::uint32_t MemoryTable::lockedPages() const {
  std::uint32_t kilobytes = 0;
  for (const auto& [id, process] : processes_) kilobytes += process.locked;
  // As a signed number, and in pages of 4096 bytes.
  return static_cast<std::uint32_t>(static_cast<std::int32_t>(kilobytes) / 4);
}

}  // namespace hwcalc
