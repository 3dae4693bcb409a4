// What the node's command line tools share.
#ifndef QX_NODE_TOOL_MAIN_H
#define QX_NODE_TOOL_MAIN_H

#include <functional>
#include <string>

namespace node {

/// Runs `body` and returns its value. An Error is written to standard error as
/// "TOOL: text" and gives its code; any other exception gives kFailed.
int runTool(const char* tool, const std::function<int()>& body);

/// The table of exit codes for --help.
std::string exitCodeHelp();

/// Sets PATH, so that the programs that tools run are the host's own.
void setToolPath();

}  // namespace node

#endif
