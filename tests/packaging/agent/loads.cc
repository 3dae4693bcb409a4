#include <elf.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "frame/init.h"
#include "frame/stages.h"
#include "hwcalc/entry.h"

// An agent would load it; this program has none of what the framework asks of one. So it
// only looks whether the plug-in has what the headers promise.
int main() {
  std::ifstream file(PLUGIN, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (!text.starts_with(ELFMAG)) {
    fprintf(stderr, "'%s' is no library\n", PLUGIN);
    return 1;
  }
  for (const char* name : {"initLibrary", "finiLibrary", QXHWCalculateName, "qxLinMigrateVersion",
                           "factoryQXLinMigrateP2VSerializeOperator", VERSION}) {
    if (text.find(name + std::string(1, '\0')) != std::string::npos) continue;
    fprintf(stderr, "%s has no '%s'\n", PLUGIN, name);
    return 1;
  }
}
