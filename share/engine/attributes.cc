#include "share/engine/attributes.h"

#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "host/visible.h"

namespace engine {

namespace {

// Names that belong to the copying program itself, in the eyes of stock rsync.
constexpr std::string_view kInternalPrefixes[] = {"user.rsync.%", "trusted.rsync.%"};

bool wanted(AttributeKinds kinds, std::string_view name) {
  if (!carriesAttribute(name)) return false;
  for (const std::string_view prefix : kInternalPrefixes)
    if (name.substr(0, prefix.size()) == prefix) return false;
  return isAccessList(name) ? kinds.accessLists : kinds.others;
}

bool listNames(const AttributePlace& place, std::vector<char>& names, ssize_t& size) {
  names.resize(1024);
  while ((size = place.list(names.data(), names.size())) < 0 && errno == ERANGE) {
    const ssize_t needed = place.list(nullptr, 0);
    if (needed < 0) return false;
    names.resize(static_cast<size_t>(needed) + 256);
  }
  return size >= 0 || errno == EOPNOTSUPP || errno == ENOSYS;
}

}  // namespace

AttributePlace::AttributePlace(int directory, std::string_view name)
    : path_("/proc/self/fd/" + std::to_string(directory) + "/") {
  path_ += name;
}

ssize_t AttributePlace::list(char* buffer, size_t size) const {
  return fd_ >= 0 ? ::flistxattr(fd_, buffer, size) : ::llistxattr(path_.c_str(), buffer, size);
}

ssize_t AttributePlace::get(const char* name, char* buffer, size_t size) const {
  return fd_ >= 0 ? ::fgetxattr(fd_, name, buffer, size)
                  : ::lgetxattr(path_.c_str(), name, buffer, size);
}

bool AttributePlace::set(const char* name, const std::string& value) const {
  return (fd_ >= 0 ? ::fsetxattr(fd_, name, value.data(), value.size(), 0)
                   : ::lsetxattr(path_.c_str(), name, value.data(), value.size(), 0)) == 0;
}

bool AttributePlace::remove(const char* name) const {
  return (fd_ >= 0 ? ::fremovexattr(fd_, name) : ::lremovexattr(path_.c_str(), name)) == 0;
}

bool readAttributes(const AttributePlace& place, AttributeKinds kinds, Attributes& found,
                    std::string& problem) {
  found.clear();
  if (!kinds.any()) return true;
  char few[512];
  ssize_t size = place.list(few, sizeof few);
  if (size == 0) return true;
  std::vector<char> names;
  if (size > 0) {
    names.assign(few, few + size);
  } else if (!listNames(place, names, size)) {
    problem = std::string("cannot list its extended attributes: ") + std::strerror(errno);
    return false;
  }
  size_t total = 0;
  bool good = true;
  for (ssize_t at = 0; at < size;) {
    const std::string name = names.data() + at;
    at += static_cast<ssize_t>(name.size()) + 1;
    if (!wanted(kinds, name)) continue;
    std::string value(256, '\0');
    ssize_t length = place.get(name.c_str(), value.data(), value.size());
    if (length < 0 && errno == ERANGE) {
      value.resize(kLongestAttribute);
      length = place.get(name.c_str(), value.data(), value.size());
    }
    if (length < 0 && errno == ENODATA) continue;  // gone meanwhile
    value.resize(length > 0 ? static_cast<size_t>(length) : 0);
    total += name.size() + value.size();
    if (length < 0 || total > kAttributesLimit || found.size() == kMostAttributes) {
      problem = "cannot read its extended attribute '" + host::visibleLine(name) +
                "': " + std::strerror(length < 0 ? errno : E2BIG);
      good = false;
      continue;
    }
    found.push_back({name, std::move(value)});
  }
  std::sort(found.begin(), found.end(),
            [](const Attribute& a, const Attribute& b) { return a.name < b.name; });
  return good;
}

bool writeAttributes(const AttributePlace& place, AttributeKinds kinds,
                     const Attributes& wantedOnes, bool present, std::string& problem) {
  Attributes there;
  if (present && !readAttributes(place, kinds, there, problem)) return false;
  bool good = true;
  const auto failed = [&](const char* what, const std::string& name) {
    problem = std::string("cannot ") + what + " its extended attribute '" +
              host::visibleLine(name) + "': " + std::strerror(errno);
    good = false;
  };
  for (const Attribute& old : there) {
    const auto same = [&](const Attribute& one) { return one.name == old.name; };
    if (std::none_of(wantedOnes.begin(), wantedOnes.end(), same) &&
        !place.remove(old.name.c_str()) && errno != ENODATA)
      failed("remove", old.name);
  }
  for (const Attribute& one : wantedOnes) {
    if (!wanted(kinds, one.name)) continue;
    if (std::find(there.begin(), there.end(), one) != there.end()) continue;
    if (!place.set(one.name.c_str(), one.value)) failed("set", one.name);
  }
  return good;
}

}  // namespace engine
