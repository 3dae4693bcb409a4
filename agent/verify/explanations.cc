#include "agent/verify/explanations.h"

#include <sys/stat.h>

#include "host/text.h"

namespace agent {

namespace {

constexpr std::string_view kOriginal = ".qx-orig";
constexpr const char* kSinceOnServer = "changed on the server since it was copied";
constexpr const char* kSinceInContainer = "changed in the container since";

bool isQuotaTable(std::string_view path) {
  const std::string_view name = path.substr(path.rfind('/') + 1);
  return name == "aquota.user" || name == "aquota.group" || name == "quota.user" ||
         name == "quota.group";
}

}  // namespace

Edits::Edits(std::string_view list) {
  edited_.emplace(kEditsPath, "the list of these edits");
  for (const std::string_view line : host::splitLines(list)) {
    const size_t colon = line.find(": ");
    if (line.empty() || line.front() != '/' || colon == line.npos) continue;
    const std::string path(line.substr(1, colon - 1));
    const std::string what(line.substr(colon + 2));
    edited_[path] = what;
    constexpr std::string_view kRenamed = "renamed to ";
    if (what.starts_with(kRenamed)) {
      edited_[engine::joinPath(directoryOf(path), what.substr(kRenamed.size()))] = "renamed";
    }
  }
  for (const auto& [path, what] : edited_) {
    for (std::string_view above = directoryOf(path);; above = directoryOf(above)) {
      above_.emplace(above);
      if (above.empty()) break;
    }
  }
}

std::string Edits::reasonFor(std::string_view path, const std::string& aspect) const {
  const std::string kBegin = "adapted to a container: ";
  if (const auto found = edited_.find(path); found != edited_.end()) return kBegin + found->second;
  // The original beside an edited file, or in a folder beside it.
  if (aspect == "added") {
    if (path.ends_with(kOriginal)) {
      const std::string_view original = path.substr(0, path.size() - kOriginal.size());
      if (edited_.count(original) != 0) return kBegin + "the original";
      if (original.ends_with('/') && above_.count(directoryOf(path)) != 0) {
        return kBegin + "the originals";
      }
    }
    const std::string_view directory = directoryOf(path);
    if (directory.ends_with(std::string("/") + std::string(kOriginal)) &&
        edited_.count(engine::joinPath(directoryOf(directory), path.substr(path.rfind('/') + 1)))) {
      return kBegin + "the original";
    }
  }
  // What holds an edited file may have been made for it.
  const bool holds = above_.count(path) != 0;
  if (holds && (aspect == "time" || aspect == "added")) return kBegin + "files in it";
  return {};
}

void Explanations::meet(const TreeEntry* server, const TreeEntry* container) {
  if (server && S_ISDIR(server->mode) && server->changed >= moments_.copied) {
    serverChanged_.insert(server->path);
  }
  if (container && S_ISDIR(container->mode) && container->changed >= moments_.finished) {
    containerChanged_.insert(container->path);
  }
  // What was in a directory that has gone since, has gone with it.
  if (!server && S_ISDIR(container->mode) &&
      serverChanged_.count(std::string(directoryOf(container->path))) != 0) {
    serverChanged_.insert(container->path);
  }
  if (!container && S_ISDIR(server->mode) &&
      containerChanged_.count(std::string(directoryOf(server->path))) != 0) {
    containerChanged_.insert(server->path);
  }
}

std::string Explanations::reasonFor(const std::string& path, const std::string& aspect,
                                    const TreeEntry* server, const TreeEntry* container) const {
  if (std::string reason = edits_.reasonFor(path, aspect); !reason.empty()) return reason;
  const std::string directory(directoryOf(path));
  if (server ? server->changed >= moments_.copied : serverChanged_.count(directory) != 0) {
    return kSinceOnServer;
  }
  if (container ? container->changed >= moments_.finished : containerChanged_.count(directory)) {
    return kSinceInContainer;
  }
  if (aspect != "content" && aspect != "time" && aspect != "size") return {};
  if (server && server->written) return "a process on the server has it mapped for writing";
  if (isQuotaTable(path)) return "the kernel writes the tables of its quotas";
  return {};
}

}  // namespace agent
