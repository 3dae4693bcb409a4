#include "host/mounts.h"

#include <fcntl.h>
#include <mntent.h>
#include <sys/mount.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

#include "host/error.h"
#include "host/file.h"
#include "host/text.h"

namespace host {
namespace {

bool isOctal(char c) { return c >= '0' && c <= '7'; }

std::string resolved(const std::string& path) {
  char* real = realpath(path.c_str(), nullptr);
  if (real == nullptr) return path;
  std::string result = real;
  free(real);
  return result;
}

bool isAmong(std::string_view options, std::string_view name) {
  return ("," + std::string(options) + ",").find("," + std::string(name) + ",") !=
         std::string::npos;
}

}  // namespace

std::string unescaped(std::string_view text) {
  std::string plain;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size() && isOctal(text[i + 1]) && isOctal(text[i + 2]) &&
        isOctal(text[i + 3])) {
      plain += static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 +
                                 (text[i + 3] - '0'));
      i += 3;
    } else {
      plain += text[i];
    }
  }
  return plain;
}

bool MountInfo::hasOption(std::string_view name) const { return isAmong(options, name); }

bool TableLine::hasOption(std::string_view name) const { return isAmong(options, name); }

std::vector<MountInfo> parseMountInfo(std::string_view mountinfo) {
  std::vector<MountInfo> mounts;
  for (const std::string_view line : splitLines(mountinfo)) {
    // ID PARENT MAJOR:MINOR ROOT POINT OPTIONS [FIELD...] - TYPE SOURCE OPTIONS
    const std::vector<std::string_view> words = splitWords(line);
    const auto dash = std::find(words.begin(), words.end(), "-");
    if (dash - words.begin() < 6 || words.end() - dash < 4) continue;
    mounts.push_back({std::string(words[2]), unescaped(words[3]), unescaped(words[4]),
                      std::string(dash[1]), unescaped(dash[2]), std::string(dash[3])});
  }
  return mounts;
}

std::vector<MountInfo> currentMounts() {
  const std::optional<std::string> text = readFile("/proc/self/mountinfo");
  if (!text) failErrno("cannot read /proc/self/mountinfo");
  return parseMountInfo(*text);
}

std::vector<TableLine> parseMountTable(std::string_view text) {
  std::vector<TableLine> table;
  std::string bytes(text);
  const std::unique_ptr<FILE, int (*)(FILE*)> stream(
      bytes.empty() ? nullptr : fmemopen(bytes.data(), bytes.size(), "r"), fclose);
  mntent entry{};
  std::vector<char> buffer(bytes.size() + 1);
  while (stream && getmntent_r(stream.get(), &entry, buffer.data(),
                               static_cast<int>(buffer.size())) != nullptr) {
    if (*entry.mnt_type == '\0') continue;
    table.push_back({entry.mnt_fsname, entry.mnt_dir, entry.mnt_type, entry.mnt_opts});
  }
  return table;
}

void makePrivate(const std::string& path) {
  if (mount(nullptr, path.c_str(), nullptr, MS_PRIVATE, nullptr) != 0) {
    failErrno("cannot make the mount on %s private", path.c_str());
  }
}

void detach(const std::string& path) {
  if (umount2(path.c_str(), MNT_DETACH) != 0) failErrno("cannot unmount %s", path.c_str());
}

bool addMountFlags(const std::string& path, unsigned long flags) {
  struct statvfs now {};
  if (statvfs(path.c_str(), &now) != 0) return false;
  constexpr unsigned long kPairs[][2] = {{ST_RDONLY, MS_RDONLY},    {ST_NOSUID, MS_NOSUID},
                                         {ST_NODEV, MS_NODEV},      {ST_NOEXEC, MS_NOEXEC},
                                         {ST_NOATIME, MS_NOATIME},  {ST_NODIRATIME, MS_NODIRATIME},
                                         {ST_RELATIME, MS_RELATIME}};
  for (const auto& [shown, given] : kPairs) {
    if ((now.f_flag & shown) != 0) flags |= given;
  }
  return mount(nullptr, path.c_str(), nullptr, MS_REMOUNT | MS_BIND | flags, nullptr) == 0;
}

void setHarmless(const std::string& path, bool harmless) {
  mount_attr attributes{};
  constexpr uint64_t kFlags = MOUNT_ATTR_NOSUID | MOUNT_ATTR_NODEV;
  (harmless ? attributes.attr_set : attributes.attr_clr) = kFlags;
  if (mount_setattr(AT_FDCWD, path.c_str(), 0, &attributes, sizeof attributes) != 0) {
    failErrno("cannot set the flags of the mount on %s", path.c_str());
  }
}

std::vector<std::string> mountPoints() {
  std::vector<std::string> points;
  for (const MountInfo& mount : currentMounts()) points.push_back(mount.point);
  return points;
}

std::string mountSource(const std::vector<MountInfo>& mounts, const std::string& path) {
  const std::string place = resolved(path);
  std::string source;
  for (const MountInfo& mount : mounts) {
    if (mount.point == place) source = mount.source;
  }
  return source;
}

size_t countMountsAt(const std::vector<std::string>& points, const std::string& path) {
  return static_cast<size_t>(std::count(points.begin(), points.end(), resolved(path)));
}

std::vector<std::string> mountsBelow(const std::vector<std::string>& points,
                                     const std::string& path) {
  const std::string start = resolved(path) + "/";
  std::vector<std::string> below;
  for (const std::string& point : points) {
    if (point.starts_with(start)) below.push_back(point);
  }
  return below;
}

std::string missingMount(std::string_view fstab, const std::vector<std::string>& points,
                         const std::string& path) {
  std::string deepest;
  for (const TableLine& line : parseMountTable(fstab)) {
    const std::string& place = line.point;
    if (!place.starts_with('/') || place == "/") continue;
    if (!(path + "/").starts_with(place + "/") || place.size() <= deepest.size()) continue;
    if (countMountsAt(points, place) == 0) deepest = place;
  }
  return deepest;
}

}  // namespace host
