#include "hwcalc/resolver.h"

#include "expand/files.h"
#include "expand/strings.h"
#include "hwcalc/hw_calc.h"

namespace hwcalc {

std::pair<std::list<std::string>, std::list<std::string>> parseResolverSettings(
    const std::string& text) {
  std::list<std::string> nameservers;
  std::list<std::string> searchDomains;
  for (const std::string& line : Expand::split("\r\n", text, 0)) {
    const std::size_t blank = line.find_first_of(" \t");
    if (blank == std::string::npos) continue;
    const std::string keyword = line.substr(0, blank);
    std::string rest = line.substr(blank);
    if (keyword == "nameserver") {
      Expand::collapse(rest);
      nameservers.push_back(rest);
    } else if (keyword == "search") {
      for (const std::string& word : Expand::split(" \t", rest, 0)) {
        if (!word.empty()) searchDomains.push_back(word);
      }
    }
  }
  return {nameservers, searchDomains};
}

}  // namespace hwcalc

std::pair<std::list<std::string>, std::list<std::string>> QXHWCalc::getNSAttrs(
    std::list<QXA::QXACalculateHWNodeWarning>&) const {
  std::string text;
  if (Expand::get_file("/etc/resolv.conf", text) != 0) return {};
  return hwcalc::parseResolverSettings(text);
}
