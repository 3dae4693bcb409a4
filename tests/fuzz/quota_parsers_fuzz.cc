// Feeds any bytes to the quota parsers; the first byte picks the parser. They must
// neither crash nor throw, but for the range error of a dump. Run:
//
//   build/fuzz/tests/fuzz/quota_parsers_fuzz tests/fuzz/corpus/quota_parsers
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "quota/grace.h"
#include "quota/mtab.h"
#include "quota/quota_dump.h"
#include "quota/quota_report.h"
#include "quota/quota_vz_stat.h"

namespace {

// What is accepted and written again must be read as the same.
void dump(const std::string& text) {
  std::string limits, graces;
  try {
    if (!QuotaMgmt::quota_dump_read(text, limits, graces).empty()) return;
  } catch (const std::out_of_range&) {
    return;
  }
  std::string again, gracesAgain;
  QuotaMgmt::quota_dump_read(QuotaMgmt::quota_dump_write(limits, graces), again, gracesAgain);
  if (again != limits || gracesAgain != graces) abort();
}

void parse(char which, const std::string& text) {
  QuotaMgmt::Quotas users, groups;
  switch (which) {
    case 'd':
      return dump(text);
    case 'g':
      QuotaMgmt::grace_atoll(text.c_str());
      return;
    case 'm':
      QuotaMgmt::parseMtab(text);
      return;
    case 't':
      QuotaMgmt::graces_parse_phys(text, &users, &groups);
      return;
    case 'v':
      QuotaMgmt::quota_parse_vz(text, &users, &groups);
      return;
    default:
      QuotaMgmt::limits_parse_phys(text, &users, &groups);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size != 0) parse(static_cast<char>(data[0]), std::string(data + 1, data + size));
  return 0;
}
