#include "host/accounts.h"

#include <limits>
#include <optional>

#include "host/text.h"

namespace host {

std::set<uint32_t> parseAccountIds(std::string_view text) {
  std::set<uint32_t> ids;
  for (std::string_view line : splitLines(text)) {
    for (int field = 0; field < 2 && !line.empty(); ++field) {
      const size_t colon = line.find(':');
      line.remove_prefix(colon == line.npos ? line.size() : colon + 1);
    }
    const std::optional<uint64_t> id = parseDecimal(line.substr(0, line.find(':')));
    if (id && *id <= std::numeric_limits<uint32_t>::max()) ids.insert(static_cast<uint32_t>(*id));
  }
  return ids;
}

}  // namespace host
