// Feeds any bytes to the workers' parsers; the first byte picks the parser. They
// must neither crash nor throw, and no figure may be negative. Run:
//
//   build/fuzz/tests/fuzz/migrate_parsers_fuzz tests/fuzz/corpus/migrate_parsers
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "migrate/disk_space.h"
#include "migrate/progress.h"

namespace {

void parse(char which, const std::string& text) {
  switch (which) {
    case 'd': {
      const P2V::DuTotal total = P2V::parseDuTotal(text);
      if (total.bytes < 0 || P2V::parseDuGrandTotal(text, total.position) < 0) abort();
      return;
    }
    case 'f':
      if (P2V::parseDfLine(P2V::dfDataLine(text)) < 0) abort();
      return;
    default:
      P2V::scanProgressLine(text.c_str());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size != 0) parse(static_cast<char>(data[0]), std::string(data + 1, data + size));
  return 0;
}
