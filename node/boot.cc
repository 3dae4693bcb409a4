#include "node/boot.h"

#include <algorithm>
#include <cctype>
#include <limits>
#include <set>

#include "host/error.h"
#include "host/text.h"

namespace node {
namespace {

bool startsAtBoot(const Container& container) {
  const std::string word = valueOf(container.vars, "ONBOOT", "no");
  if (word != "yes" && word != "no") {
    fail(ExitCode::kBadConfig, "ONBOOT of container %u is '%s': yes or no is expected",
         container.id, word.c_str());
  }
  return word == "yes";
}

uint64_t orderOf(const Container& container) {
  const std::string text = container.var("BOOTORDER");
  if (text.empty()) return std::numeric_limits<uint64_t>::max();
  const std::optional<uint64_t> order = parseDecimal(text);
  if (!order) {
    fail(ExitCode::kBadConfig, "BOOTORDER of container %u is '%s': a number is expected",
         container.id, text.c_str());
  }
  return *order;
}

}  // namespace

std::vector<Container> bootOrder(std::vector<Container> containers) {
  std::erase_if(containers, [](const Container& one) { return !startsAtBoot(one); });
  std::vector<std::pair<uint64_t, Container>> ordered;
  for (Container& container : containers) {
    const uint64_t order = orderOf(container);
    ordered.emplace_back(order, std::move(container));
  }
  std::sort(ordered.begin(), ordered.end(), [](const auto& a, const auto& b) {
    return std::pair(a.first, a.second.id) < std::pair(b.first, b.second.id);
  });
  std::vector<Container> result;
  result.reserve(ordered.size());
  for (auto& [order, container] : ordered) result.push_back(std::move(container));
  return result;
}

std::string mountUnit(const std::string& path) {
  std::string name;
  const size_t start = path.find_first_not_of('/');
  if (start == path.npos) return "-.mount";
  for (size_t i = start; i < path.size(); ++i) {
    const auto c = static_cast<unsigned char>(path[i]);
    if (c == '/') {
      if (i + 1 < path.size()) name += '-';
    } else if (isalnum(c) != 0 || c == ':' || c == '_' || (c == '.' && i != start)) {
      name += path[i];
    } else {
      name += textf("\\x%02x", c);
    }
  }
  return name + ".mount";
}

std::string bootDropIn(const std::vector<Container>& containers) {
  std::set<std::string> wanted;
  std::set<std::string> after;
  for (const Container& container : containers) {
    const std::string& area = container.privateArea;
    for (size_t end = area.find('/', 1); end != area.npos; end = area.find('/', end + 1)) {
      wanted.insert(mountUnit(area.substr(0, end)));
    }
    wanted.insert(mountUnit(area));
    // These come and go with the container, and are left to qxctl when the host ends.
    after.insert(mountUnit(container.root));
    after.insert(mountUnit(container.tree()));
  }
  std::string text =
      "# Made from the configurations of the containers at each start of systemd.\n[Unit]\n";
  // A unit that does not exist is not missed.
  for (const std::string& unit : wanted)
    text += textf("Wants=%s\nAfter=%s\n", unit.c_str(), unit.c_str());
  for (const std::string& unit : after) text += "After=" + unit + "\n";
  return text;
}

}  // namespace node
