#include "hwcalc/excludes.h"

#include <sys/stat.h>

#include <initializer_list>
#include <optional>
#include <string_view>

#include "expand/files.h"
#include "expand/strings.h"
#include "hwcalc/hw_calc.h"

namespace hwcalc {

namespace {

constexpr MountFlags kExcluded{.excluded = true, .contentsOnly = false};
constexpr MountFlags kExcludedContents{.excluded = true, .contentsOnly = true};
constexpr MountFlags kContents{.excluded = false, .contentsOnly = true};

bool isAnyOf(const std::string& text, std::initializer_list<std::string_view> words) {
  for (const std::string_view word : words) {
    if (text == word) return true;
  }
  return false;
}

bool containsAnyOf(const std::string& text, std::initializer_list<std::string_view> parts) {
  for (const std::string_view part : parts) {
    if (text.find(part) != std::string::npos) return true;
  }
  return false;
}

// What to do with an entry; nothing for one that is copied.
std::optional<MountFlags> flagsOf(const MountEntry& entry,
                                  const std::set<std::string>& virtualTypes) {
  const std::string& type = entry.type;
  if (isAnyOf(type, {"rootfs", "devfs"})) return std::nullopt;
  if (isAnyOf(type, {"smbfs", "nfs", "usbfs", "iso9660"})) return kExcludedContents;
  if (isAnyOf(type, {"auto", "autofs", "subfs"})) return kExcluded;
  if (containsAnyOf(entry.device, {"/fd", "/loop"})) return kExcludedContents;
  if (containsAnyOf(entry.options, {"loop", "bind", "removable_t"})) return kExcludedContents;
  if (virtualTypes.count(type) != 0) return kContents;
  return std::nullopt;
}

std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace

std::set<std::string> parseVirtualTypes(const std::string& text) {
  std::set<std::string> types;
  for (const std::string& line : Expand::split("\n", text, 0)) {
    const std::vector<std::string> columns = Expand::split("\t", line, 0);
    if (columns.front() == "nodev") types.insert(columns.back());
  }
  return types;
}

void MountPoints::add(const std::vector<MountEntry>& table) {
  for (const MountEntry& entry : table) {
    if (entry.type == "reiserfs") reiserfsSeen_ = true;
    const std::optional<MountFlags> flags = flagsOf(entry, virtualTypes_);
    if (!flags) continue;
    const std::string path = withoutTrailingSlashes(entry.mountPoint);
    // Swap and the like are mounted nowhere ("none"). And a server whose root is on
    // a file system without a device (an overlay, zfs, nfs) is still to be copied.
    if (path.front() != '/' || path == "/") continue;
    points_[path] = *flags;
  }
}

bool MountPoints::isTakenOutAbove(const std::string& path) const {
  for (std::size_t end = path.find('/', 1); end != std::string::npos;
       end = path.find('/', end + 1)) {
    const auto outer = points_.find(path.substr(0, end));
    if (outer == points_.end()) continue;
    if (outer->second.excluded || outer->second.contentsOnly) return true;
  }
  return false;
}

std::list<QXA::QXAExcludePath> MountPoints::excludes() const {
  std::list<QXA::QXAExcludePath> list;
  for (const auto& [path, flags] : points_) {
    if (isTakenOutAbove(path)) continue;
    list.push_back({path + (flags.contentsOnly ? "/*" : ""), flags.excluded});
  }
  return list;
}

namespace {

constexpr char kLastlog[] = "/var/log/lastlog";
// Twelve sparse gigabytes are common where user ids are large; rsync would read
// every zero of them.
constexpr off_t kLastlogLimit = 1073741824;  // bytes

// An empty text for a file that cannot be read.
std::string contentsOf(const char* path) {
  std::string text;
  if (Expand::get_file(path, text) != 0) text.clear();
  return text;
}

}  // namespace

}  // namespace hwcalc

std::list<QXA::QXAExcludePath> QXHWCalc::calcExcludes(
    PhysParams* params, std::list<QXA::QXACalculateHWNodeWarning>& warnings) const {
  hwcalc::MountPoints points(hwcalc::parseVirtualTypes(hwcalc::contentsOf("/proc/filesystems")));
  points.add(hwcalc::parseMountTable(hwcalc::contentsOf("/etc/fstab")));
  points.add(hwcalc::parseMountTable(hwcalc::contentsOf("/etc/mtab")));
  if (points.reiserfsSeen()) {
    warnings.push_back(
        {WARN_REISERFS,
         "Some of partitions contain reiserfs, which makes impossible to calculate the DISKINODES "
         "parameter. It will be set to an enough high value."});
  }
  std::list<QXA::QXAExcludePath> excludes = points.excludes();
  if (points.reiserfsSeen()) params->diskinodes = 1000000;
  struct stat lastlog;
  if (stat(hwcalc::kLastlog, &lastlog) == 0 && lastlog.st_size > hwcalc::kLastlogLimit) {
    excludes.push_back({hwcalc::kLastlog, true});
  }
  return excludes;
}
