// How much private and locked memory a set of processes has, when what they share
// is counted once.
//
// The rule. A mapping that cannot be written, or is a shared mapping of an object
// that is known, is counted in full, and once for the whole system however many
// processes have it. All other mappings are private writable memory, which each
// process has for itself, and count in full for each process, with one exception:
// after a fork, parent and child have the same pages until one of them writes.
// A child that still has its parent's name was forked from it and has run no other
// program since. Each page of its private writable mappings at whose address its
// parent has such a mapping too is taken for inherited, and counts half: nobody
// knows whether it has been written to since (then it is a page of its own) or not
// (then it is none). So of a mapping that one process made and n others inherited,
// 1 + n/2 times the size is counted.
#ifndef QX_HWCALC_MEMORY_TABLE_H
#define QX_HWCALC_MEMORY_TABLE_H

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "hwcalc/proc_files.h"

namespace hwcalc {

/// The key of one mapping: the identity of the mapped object and the place in it.
struct map_idx_t {
  std::uint64_t object;
  std::uint64_t place;
  bool operator==(const map_idx_t&) const = default;
};

struct MapIdxHash {
  std::size_t operator()(const map_idx_t& key) const;
};

/// One distinct mapping.
struct map_info_t {
  std::uint64_t pages = 0;  ///< the largest size that a process has of it
  std::uint32_t flags = 0;  ///< MapFlag bits
  float share = 1.0f;       ///< how much of it counts
};

struct proc_info_t {
  std::vector<map_idx_t> maps;  ///< in the order of the addresses
  std::string name;
  std::uint32_t parent = 0;    ///< process id
  std::uint32_t resident = 0;  ///< kilobytes
  std::uint32_t locked = 0;    ///< kilobytes
};

class MemoryTable {
 public:
  /// Adds a process; each id only once.
  void add(std::uint32_t id, const ProcStatus& status, const std::vector<MapsLine>& maps);

  /// Works out the shares. To be called once, when all processes have been added.
  void link();

  /// Pages that count, each distinct mapping's rounded down; at most 2147483647.
  std::uint32_t privatePages() const;
  std::uint32_t lockedPages() const;

  const std::unordered_map<map_idx_t, map_info_t, MapIdxHash>& mappings() const {
    return mappings_;
  }
  const std::unordered_map<std::uint32_t, proc_info_t>& processes() const { return processes_; }

 private:
  void linkTo(const proc_info_t& parent, const proc_info_t& child);

  std::unordered_map<map_idx_t, map_info_t, MapIdxHash> mappings_;
  std::unordered_map<std::uint32_t, proc_info_t> processes_;
};

}  // namespace hwcalc

#endif
