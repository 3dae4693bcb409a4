// What a program prints.
#ifndef QX_AGENT_SYSTEM_OUTPUT_OF_H
#define QX_AGENT_SYSTEM_OUTPUT_OF_H

#include <optional>
#include <string>
#include <vector>

namespace agent {

/// The standard output of a program, up to 256 KiB of it; nothing when the program cannot
/// be started, fails, or has not ended after so many seconds. argv[0] is looked for on PATH.
std::optional<std::string> outputOf(const std::vector<std::string>& argv, int seconds);

}  // namespace agent

#endif
