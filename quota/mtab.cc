#include "quota/mtab.h"

#include "expand/strings.h"

namespace QuotaMgmt {

std::vector<MountEntry> parseMtab(const std::string& text) {
  std::vector<MountEntry> entries;
  for (const std::string& line : Expand::split("\n", text, 0)) {
    const std::vector<std::string> fields = Expand::split(" ", line, 0);
    if (fields.size() < 4) continue;
    entries.push_back({fields[0], fields[1], Expand::split(",", fields[3], 0)});
  }
  return entries;
}

}  // namespace QuotaMgmt
