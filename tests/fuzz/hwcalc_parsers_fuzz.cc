// Feeds any bytes to the calculator's parsers; the first byte picks the parser. They
// must neither crash nor throw. Run:
//
//   build/fuzz/tests/fuzz/hwcalc_parsers_fuzz tests/fuzz/corpus/hwcalc_parsers
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "hwcalc/command_output.h"
#include "hwcalc/excludes.h"
#include "hwcalc/formulas.h"
#include "hwcalc/memory_table.h"
#include "hwcalc/mount_table.h"
#include "hwcalc/proc_files.h"
#include "hwcalc/resolver.h"

namespace {

// Two processes, parent and child, with the same mappings count no more than twice
// what one does.
void maps(const std::string& text) {
  std::vector<hwcalc::MapsLine> lines;
  hwcalc::parseMaps(text, lines);
  hwcalc::MemoryTable one;
  one.add(10, {"a", 1, 0, 0}, lines);
  one.link();
  hwcalc::MemoryTable two;
  two.add(10, {"a", 1, 0, 0}, lines);
  two.add(20, {"a", 10, 0, 0}, lines);
  two.link();
  if (two.privatePages() > 2ull * one.privatePages()) abort();
}

void mounts(const std::string& text) {
  hwcalc::MountPoints points({"proc", "tmpfs"});
  points.add(hwcalc::parseMountTable(text));
  for (const auto& exclude : points.excludes()) {
    if (exclude.path.size() < 2 || exclude.path[0] != '/') abort();
  }
}

void parse(char which, const std::string& text) {
  switch (which) {
    case 'p':
      return maps(text);
    case 'm':
      return mounts(text);
    case 's':
      hwcalc::parseStatus(text);
      return;
    case 'c':
      hwcalc::readCount(text);
      hwcalc::readAllocatedPages(text);
      hwcalc::sumUsed(text);
      return;
    case 'f':
      hwcalc::parseVirtualTypes(text);
      return;
    case 'd':
      hwcalc::splitDistribution(text);
      return;
    default:
      hwcalc::parseResolverSettings(text);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size != 0) parse(static_cast<char>(data[0]), std::string(data + 1, data + size));
  return 0;
}
