// Reading what the measuring commands print. Numbers beyond 2147483647 read as
// that: the formulas read the counters as signed 32-bit numbers.
#ifndef QX_HWCALC_COMMAND_OUTPUT_H
#define QX_HWCALC_COMMAND_OUTPUT_H

#include <cstdint>
#include <string>

namespace hwcalc {

/// The output of a counting command: one number, white space around it.
std::int32_t readCount(const std::string& output);

/// The pages of System V shared memory in the output of "ipcs -m -u"; 0 when it
/// does not say.
std::int32_t readAllocatedPages(const std::string& ipcsOutput);

/// The sum of the used column, the third, in the output of df: 1024-byte blocks
/// with "-k", inodes with "-i".
std::int32_t sumUsed(const std::string& dfOutput);

}  // namespace hwcalc

#endif
