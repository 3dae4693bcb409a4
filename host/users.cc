#include "host/users.h"

#include <dirent.h>
#include <unistd.h>

#include <climits>
#include <memory>
#include <optional>
#include <string_view>

#include "host/file.h"
#include "host/text.h"

namespace host {
namespace {

bool leadsInto(const std::string& link, const std::string& path) {
  char target[PATH_MAX];
  const ssize_t length = readlink(link.c_str(), target, sizeof target);
  if (length <= 0) return false;
  const std::string_view text(target, static_cast<size_t>(length));
  return text.starts_with(path) && (text.size() == path.size() || text[path.size()] == '/');
}

bool usesPath(const std::string& process, const std::string& path) {
  for (const char* name : {"/cwd", "/root", "/exe"}) {
    if (leadsInto(process + name, path)) return true;
  }
  const std::unique_ptr<DIR, int (*)(DIR*)> files(opendir((process + "/fd").c_str()), closedir);
  while (const dirent* entry = files ? readdir(files.get()) : nullptr) {
    if (leadsInto(process + "/fd/" + entry->d_name, path)) return true;
  }
  return false;
}

}  // namespace

std::string findUser(const std::string& path) {
  const std::unique_ptr<DIR, int (*)(DIR*)> processes(opendir("/proc"), closedir);
  while (const dirent* entry = processes ? readdir(processes.get()) : nullptr) {
    if (!parseDecimal(entry->d_name)) continue;
    const std::string process = std::string("/proc/") + entry->d_name;
    if (!usesPath(process, path)) continue;
    std::string name = readFile(process + "/comm").value_or("?\n");
    name.pop_back();
    return textf("process %s (%s)", entry->d_name, name.c_str());
  }
  return {};
}

}  // namespace host
