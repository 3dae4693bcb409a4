#include "host/host_name.h"

#include <algorithm>
#include <cctype>

namespace host {
namespace {

bool isLabel(std::string_view label) {
  return !label.empty() && label.size() <= 63 && !label.starts_with('-') && !label.ends_with('-') &&
         std::all_of(label.begin(), label.end(), [](char c) {
           return isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_';
         });
}

}  // namespace

bool isHostName(std::string_view name) {
  if (name.size() > 253) return false;
  for (;;) {
    const size_t dot = name.find('.');
    if (!isLabel(name.substr(0, dot))) return false;
    if (dot == name.npos) return true;
    name.remove_prefix(dot + 1);
  }
}

}  // namespace host
