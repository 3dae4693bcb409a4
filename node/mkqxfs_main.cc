// mkqxfs VE_PRIVATE: makes an empty private area.
#include <cstdio>
#include <cstring>
#include <string>

#include "node/container.h"
#include "node/error.h"
#include "node/private_area.h"
#include "node/tool_main.h"

namespace {

constexpr char kUsage[] =
    "Usage: mkqxfs VE_PRIVATE\n"
    "Makes an empty private area for a container: the directory VE_PRIVATE, for root\n"
    "only, with an empty file tree 'fs' in it. Parent directories are made. A directory\n"
    "that holds anything is refused.\n\n";

}  // namespace

int main(int argc, char** argv) {
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
    node::makePrivateArea(path);
    return 0;
  });
}
