#include "expand/config.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "expand/error.h"

namespace Expand {
namespace {

// The entry of that name in a list of pairs.
template <typename List>
auto findIn(List& list, const std::string& name) {
  return std::find_if(list.begin(), list.end(),
                      [&name](const auto& entry) { return entry.first == name; });
}

template <typename List>
auto& findOrAdd(List& list, const std::string& name) {
  const auto found = findIn(list, name);
  if (found != list.end()) return found->second;
  return list.emplace_back(name, typename List::value_type::second_type()).second;
}

}  // namespace

void ConfigOption::set(const std::string& value) {
  text_ = value;
  defined_ = true;
}

void ConfigOption::value(std::string& text) const { text = text_; }

void ConfigOption::value(char* buf, unsigned long size) const {
  if (size == 0) return;
  const std::size_t length = std::min<std::size_t>(text_.size(), size - 1);
  std::memcpy(buf, text_.data(), length);
  buf[length] = '\0';
}

bool ConfigOption::available(bool required) const {
  if (!defined_ && required) throw Error(Error::CONFIG_NO_OPTION, "Option value is not defined");
  return defined_;
}

void ConfigOption::value(long& number, bool required) const {
  if (!available(required)) return;
  char* end = nullptr;
  errno = 0;
  const long parsed = std::strtol(text_.c_str(), &end, 10);
  if (text_.empty() || end != text_.c_str() + text_.size()) {
    throw Error(Error::CONFIG_NO_OPTION, "Option doesn't look like a long int");
  }
  if (errno == ERANGE) {
    throw Error(Error::CONFIG_NO_OPTION, parsed > 0 ? "Option value is too big for a long int"
                                                    : "Option value is too little for a long int");
  }
  number = parsed;
}

// Not with strtod, which follows the locale of the process: what is in a file does
// not.
void ConfigOption::value(double& number, bool required) const {
  if (!available(required)) return;
  const char* const end = text_.data() + text_.size();
  double parsed = 0;
  const auto [stopped, error] = std::from_chars(text_.data(), end, parsed);
  if (error != std::errc() || stopped != end) {
    throw Error(Error::CONFIG_NO_OPTION, "Option value doesn't look like a double");
  }
  number = parsed;
}

void ConfigOption::value(bool& flag, bool required) const {
  if (!available(required)) return;
  if (text_ != "true" && text_ != "false") {
    throw Error(Error::CONFIG_NO_OPTION, "Option value doesn't look like bool");
  }
  flag = text_ == "true";
}

ConfigOption& ConfigSection::operator[](const std::string& name) {
  return findOrAdd(options_, name);
}

const ConfigOption& ConfigSection::operator[](const std::string& name) const {
  static const ConfigOption undefined;
  const auto found = findIn(options_, name);
  return found != options_.end() ? found->second : undefined;
}

ConfigSection& Config::operator[](const std::string& name) { return findOrAdd(sections_, name); }

const ConfigSection& Config::operator[](const std::string& name) const {
  const auto found = findIn(sections_, name);
  if (found == sections_.end()) throw Error(Error::CONFIG_NO_SECTION, "%s", name.c_str());
  return found->second;
}

}  // namespace Expand
