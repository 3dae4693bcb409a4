#include "host/container.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include "host/error.h"
#include "host/file.h"
#include "host/paths.h"
#include "host/settings.h"
#include "host/text.h"

namespace host {
namespace {

/// Whether `path` is `ancestor` or lies below it.
bool isWithin(std::string_view path, std::string_view ancestor) {
  return path.substr(0, ancestor.size()) == ancestor &&
         (path.size() == ancestor.size() || path[ancestor.size()] == '/' || ancestor == "/");
}

}  // namespace

unsigned parseCtid(std::string_view text) {
  const std::optional<uint64_t> id = parseDecimal(text);
  if (!id || *id < 1 || *id > kMaxCtid) {
    fail(ExitCode::kUsage, "invalid container id '%s': a number from 1 to %u is expected",
         std::string(text).c_str(), kMaxCtid);
  }
  return static_cast<unsigned>(*id);
}

bool Container::hasNoDiskQuota() const {
  const std::string value = var("DISK_QUOTA");
  return value == "no" || value == "NO" || value == "off";
}

std::string Container::tree() const { return inPrivateArea(kTreeName); }

std::string configPath(unsigned id) { return textf("%s/%u.conf", kConfigDir, id); }

void checkPlace(const char* variable, const std::string& path) {
  const auto refuse = [&](const char* why) {
    fail(ExitCode::kBadConfig, "%s is '%s': %s", variable, path.c_str(), why);
  };
  if (path.empty() || path[0] != '/') refuse("an absolute path is expected");
  if (path.size() >= PATH_MAX) refuse("the path is too long");
  if ((path + "/").find("//") != path.npos || (path + "/").find("/./") != path.npos ||
      (path + "/").find("/../") != path.npos) {
    refuse("a plain path is expected, without '//', '.' and '..' in it and without '/' at its end");
  }
  // A symbolic link on the way must not lead to a forbidden place either.
  std::string real = path;
  if (char* resolved = realpath(path.c_str(), nullptr)) {
    real = resolved;
    free(resolved);
  }
  static constexpr std::array kOwnPlaces{
      kConfigDir,  "/etc/qx",          kTemplateDir,         kRunDir,
      "/run/lock", "/var/lib/qx/root", "/var/lib/qx/private"};
  static constexpr std::array kNothingInside{"/bin",   "/boot", "/dev", "/etc",  "/lib", "/lib32",
                                             "/lib64", "/proc", "/run", "/sbin", "/sys", "/usr"};
  static constexpr std::array kNotItself{"/home",    "/media",   "/mnt",     "/opt",
                                         "/root",    "/srv",     "/tmp",     "/var",
                                         "/var/lib", "/var/log", "/var/tmp", "/var/cache"};
  for (const std::string& name : {path, real}) {
    for (const char* place : kOwnPlaces) {
      if (isWithin(place, name)) refuse("the node keeps its own files there");
    }
    for (const char* place : kNothingInside) {
      if (isWithin(name, place)) refuse("this is a place of the host's system");
    }
    if (std::find(kNotItself.begin(), kNotItself.end(), name) != kNotItself.end()) {
      refuse("this is a directory of the host's system");
    }
  }
}

Container findContainer(unsigned id) {
  Container container;
  container.id = id;
  const ShellVars host = hostSettings(std::to_string(id));
  const std::optional<ShellVars> own = readShellVars(configPath(id), host);
  container.configured = own.has_value();
  container.vars = own.value_or(host);
  container.vars["VEID"] = std::to_string(id);
  container.lockDir = settingOf(host, "LOCKDIR");
  container.root = settingOf(container.vars, "VE_ROOT");
  container.privateArea = settingOf(container.vars, "VE_PRIVATE");
  checkPlace("VE_ROOT", container.root);
  checkPlace("VE_PRIVATE", container.privateArea);
  if (isWithin(container.root, container.privateArea) ||
      isWithin(container.privateArea, container.root)) {
    fail(ExitCode::kBadConfig, "VE_ROOT '%s' and VE_PRIVATE '%s' must not lie in one another",
         container.root.c_str(), container.privateArea.c_str());
  }
  return container;
}

Container loadContainer(unsigned id) {
  Container container = findContainer(id);
  if (!container.configured) {
    fail(ExitCode::kNotFound, "container %u does not exist: there is no %s", id,
         configPath(id).c_str());
  }
  return container;
}

std::vector<unsigned> configuredIds() {
  std::vector<unsigned> ids;
  if (!isDirectory(kConfigDir)) return ids;
  for (const std::string& name : listDirectory(kConfigDir)) {
    if (!name.ends_with(".conf")) continue;
    const std::optional<uint64_t> id = parseDecimal(name.substr(0, name.size() - 5));
    if (id && *id >= 1 && *id <= kMaxCtid &&
        configPath(static_cast<unsigned>(*id)).ends_with("/" + name)) {
      ids.push_back(static_cast<unsigned>(*id));
    }
  }
  std::sort(ids.begin(), ids.end());
  return ids;
}

std::string ensureConfigDirectory() {
  makeDirectories(kConfigDir);
  makeDirectories("/etc/qx");
  if (symlink(kConfigDir, kConfigLink) == 0) return {};
  if (errno != EEXIST) failErrno("cannot create the symbolic link %s", kConfigLink);
  struct stat link, directory;
  if (stat(kConfigLink, &link) == 0 && stat(kConfigDir, &directory) == 0 &&
      link.st_dev == directory.st_dev && link.st_ino == directory.st_ino) {
    return {};
  }
  return textf("%s should be a symbolic link to %s, but is not", kConfigLink, kConfigDir);
}

}  // namespace host
