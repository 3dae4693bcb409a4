#include "agent/plan/memory_limit.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "agent/plan/find_record.h"

namespace agent {

namespace {

constexpr const char* kMemoryLimit = "slmmemorylimit";
constexpr long long kDatagramBuffer = 262144;  // bytes
constexpr long long kLargestProduct = std::numeric_limits<std::int32_t>::max();
constexpr long long kLargestNumber = std::numeric_limits<long long>::max();

// The limit of a record; negative when there is none.
long long limitOf(const std::set<QXL::QXLQoS>& records, const char* name) {
  const QXL::QXLQoS* const found = findRecord(records, name);
  return found ? found->limit : -1;
}

// A product that stops at the largest number.
long long product(long long a, long long b) {
  long long result;
  return __builtin_mul_overflow(a, b, &result) ? kLargestNumber : result;
}

}  // namespace

std::optional<MemoryLimitCorrection> correctMemoryLimit(std::set<QXL::QXLQoS>& records,
                                                        long long pageSize, double procScale) {
  const QXL::QXLQoS* const found = findRecord(records, kMemoryLimit);
  const long long kernel = limitOf(records, "kmemsize");
  const long long tcpBuffers = limitOf(records, "tcpsndbuf");
  const long long otherBuffers = limitOf(records, "othersockbuf");
  const long long privatePages = limitOf(records, "privvmpages");
  const long long lockedPages = limitOf(records, "lockedpages");
  if (!found || pageSize <= 0 ||
      std::min({kernel, tcpBuffers, otherBuffers, privatePages, lockedPages}) < 0) {
    return std::nullopt;
  }
  // Once for sending, once for receiving.
  const long long tcp = product(2, tcpBuffers);
  const long long privateBytes = product(pageSize, privatePages);
  const long long lockedBytes = product(pageSize, lockedPages);
  if (std::max({tcp, privateBytes, lockedBytes}) <= kLargestProduct) return std::nullopt;

  long double sum = kDatagramBuffer;
  for (const long long part : {kernel, tcp, otherBuffers, privateBytes, lockedBytes}) {
    sum += static_cast<long double>(part);
  }
  sum *= static_cast<long double>(procScale);
  const auto largest = static_cast<long double>(kLargestNumber);
  QXL::QXLQoS record = *found;
  const long long computed = record.limit;
  record.limit = sum < largest ? static_cast<long long>(sum) : kLargestNumber;
  record.barrier = record.limit;
  records.erase(record);
  records.insert(record);
  return MemoryLimitCorrection{computed, record.limit};
}

}  // namespace agent
