#include "host/leases.h"

#include "host/error.h"
#include "host/file.h"
#include "host/text.h"

namespace host {
namespace {

constexpr const char* kDhclientDirs[] = {"/var/lib/dhcp", "/var/lib/dhclient",
                                         "/var/lib/NetworkManager"};

/// The word without the quotes around it and the semicolon after it.
std::string_view bare(std::string_view word) {
  if (word.ends_with(';')) word.remove_suffix(1);
  if (word.size() >= 2 && word.starts_with('"') && word.ends_with('"')) {
    word = word.substr(1, word.size() - 2);
  }
  return word;
}

}  // namespace

bool dhclientLeaseGrants(std::string_view text, std::string_view interface,
                         std::string_view address) {
  bool interfaceMatches = false;
  bool addressMatches = false;
  for (std::string_view line : splitLines(text)) {
    const std::vector<std::string_view> words = splitWords(line);
    if (words.empty()) continue;
    if (words[0] == "lease") {
      interfaceMatches = addressMatches = false;
    } else if (words.size() >= 2 && words[0] == "interface") {
      interfaceMatches = bare(words[1]) == interface;
    } else if (words.size() >= 2 && words[0] == "fixed-address") {
      addressMatches = bare(words[1]) == address;
    }
    if (interfaceMatches && addressMatches) return true;
  }
  return false;
}

bool keyValueLeaseGrants(std::string_view text, std::string_view address) {
  for (std::string_view line : splitLines(text)) {
    if (line.starts_with("ADDRESS=") && line.substr(8) == address) return true;
  }
  return false;
}

bool hasLease(const std::string& interface, int index, const std::string& address) {
  const std::string networkd = textf("/run/systemd/netif/leases/%d", index);
  if (keyValueLeaseGrants(readFile(networkd).value_or(""), address)) return true;
  for (const std::string dir : kDhclientDirs) {
    if (!isDirectory(dir)) continue;
    for (const std::string& name : listDirectory(dir)) {
      if (!name.ends_with(".lease") && !name.ends_with(".leases")) continue;
      const std::string text = readFile(textf("%s/%s", dir.c_str(), name.c_str())).value_or("");
      if (dhclientLeaseGrants(text, interface, address)) return true;
      if (name.ends_with("-" + interface + ".lease") && keyValueLeaseGrants(text, address)) {
        return true;
      }
    }
  }
  return false;
}

}  // namespace host
