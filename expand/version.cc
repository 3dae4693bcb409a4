// Versions packed one byte per component.
#include <cstdlib>
#include <string>
#include <vector>

#include "expand/strings.h"

namespace Expand {

std::string ver2str(unsigned v) {
  const int components = v >= 0x1000000 ? 4 : v >= 0x10000 ? 3 : 2;
  std::vector<std::string> texts;
  for (int i = components - 1; i >= 0; --i) {
    texts.push_back(std::to_string((v >> (8 * i)) & 0xff));
  }
  return join(".", texts.begin(), texts.end());
}

unsigned str2ver(const char* s) {
  const std::vector<std::string> components = split(".", s, 0);
  if (components.size() < 2 || components.size() > 4) return 0;
  unsigned version = 0;
  for (const std::string& component : components) {
    version = version << 8 | static_cast<unsigned>(std::strtol(component.c_str(), nullptr, 10));
  }
  return version;
}

}  // namespace Expand
