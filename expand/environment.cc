#include <map>
#include <string>
#include <vector>

#include "expand/caller.h"
#include "expand/strings.h"

namespace Expand {
namespace {

using Variables = std::map<std::string, std::string>;

Variables parse(const std::list<std::string>& entries) {
  Variables variables;
  for (const std::string& entry : entries) {
    std::vector<std::string> pieces = split("=", entry, 2);
    pieces.resize(2);
    for (std::string& piece : pieces) strip(piece);
    variables[pieces[0]] = pieces[1];
  }
  return variables;
}

// The name between the first two "%" of a value; empty when there is none.
std::string reference(const std::string& value) {
  const std::size_t first = value.find('%');
  if (first == std::string::npos) return "";
  const std::size_t second = value.find('%', first + 1);
  if (second == std::string::npos) return "";
  return value.substr(first + 1, second - first - 1);
}

}  // namespace

void CallerExec::mergeEnvironments(std::list<std::string>& base,
                                   const std::list<std::string>& add) {
  Variables merged = parse(base);
  for (const auto& [name, added] : parse(add)) {
    if (merged.insert({name, added}).second) continue;
    const std::string referred = reference(added);
    if (referred.empty()) continue;
    const std::string mark = "%" + referred + "%";
    std::string value = added;
    // A variable that is not there comes to be there, with an empty value.
    value.replace(value.find(mark), mark.size(), merged[referred]);
    merged[name] = value;
  }
  base.clear();
  for (const auto& [name, value] : merged) {
    base.push_back(name);
    base.back().append("=").append(value);
  }
}

}  // namespace Expand
