// qx-containers-generator DIRECTORY...: what systemd calls before it does anything else.
// It may not count on more than the root file system, and must not write elsewhere.
#include <cstdio>
#include <string>
#include <vector>

#include "host/container.h"
#include "host/error.h"
#include "host/file.h"
#include "node/boot.h"
#include "node/host.h"
#include "node/tool_main.h"

int main(int argc, char** argv) {
  return node::runTool("qx-containers-generator", [&] {
    if (argc < 2 || argv[1][0] != '/') {
      node::fail(node::ExitCode::kUsage, "a directory for units is expected");
    }
    std::vector<node::Container> containers;
    for (const unsigned id : node::configuredIds()) {
      try {
        containers.push_back(node::findContainer(id));
      } catch (const node::Error& error) {
        // It is in nobody else's way.
        fprintf(stderr, "qx-containers-generator: warning: %s\n", error.what());
      }
    }
    const std::string place = std::string(argv[1]) + "/" + node::kBootService + ".d";
    node::makeDirectories(place);
    node::replaceFile(place + "/mounts.conf", node::bootDropIn(containers), 0644);
    return 0;
  });
}
