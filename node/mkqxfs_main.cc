// mkqxfs VE_PRIVATE: makes an empty private area.
#include <cstdio>
#include <cstring>
#include <string>

#include "host/container.h"
#include "host/error.h"
#include "host/paths.h"
#include "host/place.h"
#include "node/private_area.h"
#include "node/storage.h"
#include "node/tool_main.h"

namespace {

constexpr char kUsage[] =
    "Usage: mkqxfs VE_PRIVATE\n"
    "Creates an empty private area for a container: the directory VE_PRIVATE, for root\n"
    "only, with an empty file tree 'fs' in it. Parent directories are created. A directory\n"
    "that is not empty is refused. The tree is stored as STORAGE says in the\n"
    "configuration of the container that has this private area, or in /etc/qx/qx.conf.\n\n";

/// The container whose private area has this path: its configuration may say what
/// the tree is to lie on, and how large it is. Without one the host's settings count.
node::Container ownerOf(const std::string& path) {
  for (const unsigned id : node::configuredIds()) {
    try {
      node::Container container = node::findContainer(id);
      if (container.privateArea == path) return container;
    } catch (const node::Error&) {
      // Another container's malformed file is not in the way here.
    }
  }
  node::Container container;
  container.vars =
      node::readShellVars(node::kHostConfig, {{"VEID", "0"}}).value_or(node::ShellVars());
  container.privateArea = path;
  return container;
}

}  // namespace

int main(int argc, char** argv) {
  node::setToolPath();
  if (argc == 2 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)) {
    printf("%s%s", kUsage, node::exitCodeHelp().c_str());
    return 0;
  }
  return node::runTool("mkqxfs", [&] {
    if (argc != 2 || argv[1][0] == '-') {
      node::fail(node::ExitCode::kUsage, "one argument is expected, VE_PRIVATE; see mkqxfs --help");
    }
    std::string path = argv[1];
    while (path.size() > 1 && path.ends_with('/')) path.pop_back();
    node::checkPlace("VE_PRIVATE", path);
    const node::Container owner = ownerOf(path);
    node::requireOwnPlaces(owner);
    node::requireMounted(path);
    node::makePrivateArea(path, node::storagePlan(owner));
    return 0;
  });
}
