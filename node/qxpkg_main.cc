// qxpkg sync_qxpackages ID: brings a container's template packages up to date.
#include <cstdio>
#include <string>
#include <vector>

#include "host/container.h"
#include "host/error.h"
#include "node/packages.h"
#include "node/tool_main.h"

namespace {

constexpr char kUsage[] =
    "Usage: qxpkg sync_qxpackages ID\n"
    "Synchronises container ID with the package set of its OS template. The templates\n"
    "of this host are whole file trees: a container owns all its packages from its\n"
    "creation on, so the container and its template are checked and nothing is copied.\n\n";

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments.size() == 1 && (arguments[0] == "--help" || arguments[0] == "-h")) {
    printf("%s%s", kUsage, node::exitCodeHelp().c_str());
    return 0;
  }
  return node::runTool("qxpkg", [&] {
    if (arguments.size() != 2 || arguments[0] != "sync_qxpackages") {
      node::fail(node::ExitCode::kUsage, "'sync_qxpackages ID' is expected; see qxpkg --help");
    }
    puts(node::syncPackages(node::loadContainer(node::parseCtid(arguments[1]))).c_str());
    return 0;
  });
}
