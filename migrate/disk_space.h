// Reading what du and df print. Figures in the text are 1024-byte blocks, results
// are bytes. Pure functions: nothing is run here.
#ifndef QX_MIGRATE_DISK_SPACE_H
#define QX_MIGRATE_DISK_SPACE_H

#include <cstddef>
#include <string>
#include <vector>

namespace P2V {

struct DuTotal {
  long long bytes = 0;
  std::size_t position = 0;  ///< of the number's first digit; npos when there is none
};

/// The number that begins at the first digit of "du -s PATH"'s output.
DuTotal parseDuTotal(const std::string& output);

/// The command that measures the patterns together. They are not quoted: the shell
/// is to expand their wildcards.
std::string duCommand(const std::vector<std::string>& patterns);

/// The grand total that "du -s -c" prints as its last line: the number that begins
/// at the first digit of that line at or after the position.
long long parseDuGrandTotal(const std::string& output, std::size_t position);

/// The line of df's output that holds the figures, the one after the titles; empty
/// when there is none.
std::string dfDataLine(const std::string& output);

/// Used plus available, which is what the file system can give in total less its
/// reserved blocks. Fields are found by their positions in the line (file system,
/// size, used, available); a figure that is not there counts as 0.
long long parseDfLine(const std::string& line);

}  // namespace P2V

#endif
