#include "host/mounts.h"

#include <fcntl.h>
#include <sys/mount.h>

#include <algorithm>
#include <climits>
#include <cstdlib>

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

std::vector<std::string> parseMountPoints(std::string_view mountinfo) {
  std::vector<std::string> points;
  for (std::string_view line : splitLines(mountinfo)) {
    const std::vector<std::string_view> words = splitWords(line);
    if (words.size() >= 6) points.push_back(unescaped(words[4]));
  }
  return points;
}

void makePrivate(const std::string& path) {
  if (mount(nullptr, path.c_str(), nullptr, MS_PRIVATE, nullptr) != 0) {
    failErrno("cannot make the mount on %s private", path.c_str());
  }
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
  const std::optional<std::string> text = readFile("/proc/self/mountinfo");
  if (!text) failErrno("cannot read /proc/self/mountinfo");
  return parseMountPoints(*text);
}

std::string mountSource(std::string_view mountinfo, const std::string& path) {
  const std::string place = resolved(path);
  std::string source;
  for (const std::string_view line : splitLines(mountinfo)) {
    const std::vector<std::string_view> words = splitWords(line);
    const auto dash = std::find(words.begin(), words.end(), "-");
    if (words.end() - dash < 3 || words.size() < 6 || unescaped(words[4]) != place) continue;
    source = unescaped(dash[2]);
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
  for (const std::string_view line : splitLines(fstab)) {
    const std::vector<std::string_view> words = splitWords(line);
    if (words.size() < 3 || words[0].starts_with('#')) continue;
    const std::string place = unescaped(words[1]);
    if (!place.starts_with('/') || place == "/") continue;
    if (!(path + "/").starts_with(place + "/") || place.size() <= deepest.size()) continue;
    if (countMountsAt(points, place) == 0) deepest = place;
  }
  return deepest;
}

}  // namespace host
