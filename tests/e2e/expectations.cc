#include "e2e/expectations.h"

#include <fnmatch.h>

#include <sstream>
#include <stdexcept>

namespace treediff {

namespace {

const std::set<std::string>& knownAspects() {
  static const std::set<std::string> known = {"any",    "excluded", "missing", "added",   "type",
                                              "mode",   "owner",    "size",    "content", "time",
                                              "target", "device",   "links",   "xattrs",  "holes"};
  return known;
}

}  // namespace

bool Expectation::matches(const std::string& path) const {
  const std::string all = "/**";
  if (pattern.size() > all.size() &&
      pattern.compare(pattern.size() - all.size(), all.size(), all) == 0) {
    // Everything below: compare the leading part that has as many names.
    const std::string head = pattern.substr(0, pattern.size() - all.size());
    for (size_t at = path.find('/', 1); at != std::string::npos; at = path.find('/', at + 1)) {
      if (fnmatch(head.c_str(), path.substr(0, at).c_str(), FNM_PATHNAME) == 0) return true;
    }
    return false;
  }
  return fnmatch(pattern.c_str(), path.c_str(), FNM_PATHNAME) == 0;
}

void Expectations::add(const std::string& text) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream words(line);
    Expectation item;
    std::string aspects;
    words >> item.pattern >> aspects >> std::ws;
    std::getline(words, item.reason);
    std::istringstream names(aspects);
    for (std::string name; std::getline(names, name, ',');) {
      if (!knownAspects().count(name)) {
        throw std::runtime_error("'" + name + "' is no aspect, in: " + line);
      }
      item.aspects.insert(name);
    }
    if (item.pattern[0] != '/' || item.aspects.empty() || item.reason.empty()) {
      throw std::runtime_error("an expectation is a path, aspects and a reason, not: " + line);
    }
    items_.push_back(item);
  }
}

const Expectation* Expectations::allow(const std::string& path, const std::string& aspect) {
  for (Expectation& item : items_) {
    if ((item.aspects.count(aspect) || item.aspects.count("any")) && item.matches(path)) {
      ++item.used;
      return &item;
    }
  }
  return nullptr;
}

bool Expectations::excludes(const std::string& path) const {
  for (const Expectation& item : items_) {
    if (item.aspects.count("excluded") && item.matches(path)) return true;
  }
  return false;
}

}  // namespace treediff
