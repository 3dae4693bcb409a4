// A small working system for a container's tree: the machine's shell and a few
// programs, with the shared libraries they load.
#ifndef QX_TESTS_NODE_SYSTEM_TREE_H
#define QX_TESTS_NODE_SYSTEM_TREE_H

#include <string>
#include <vector>

namespace node_test {

/// Copies /bin/sh and the named programs (found on PATH) into the directory
/// `tree`, with what they need to run there.
void makeSystemTree(const std::string& tree, const std::vector<std::string>& programs = {});

struct ToolResult {
  int status = -1;  ///< exit status, 128 + signal
  std::string out;
  std::string err;
};

/// Runs a program with its arguments and collects what it writes.
ToolResult runTool(const std::vector<std::string>& arguments);

/// The built tool of this name.
std::string toolPath(const std::string& name);

}  // namespace node_test

#endif
