#include "share/engine/hard_links.h"

#include <algorithm>

namespace engine {

std::optional<HardLinks::First> HardLinks::meet(dev_t device, ino_t inode,
                                                const std::string& path) {
  const std::scoped_lock lock(mutex_);
  const auto [found, isNew] = firsts_.try_emplace({device, inode}, First{path});
  if (isNew || found->second.path == path) return std::nullopt;
  return found->second;
}

void HardLinks::setUnchanged(dev_t device, ino_t inode) {
  const std::scoped_lock lock(mutex_);
  const auto found = firsts_.find({device, inode});
  if (found != firsts_.end()) found->second.changed = false;
}

void HardLinks::addLink(std::string path, std::string first) {
  const std::scoped_lock lock(mutex_);
  links_.push_back({std::move(path), std::move(first)});
}

std::vector<HardLinks::Link> HardLinks::takeLinks() {
  const std::scoped_lock lock(mutex_);
  std::vector<Link> taken = std::move(links_);
  links_.clear();
  std::sort(taken.begin(), taken.end(),
            [](const Link& a, const Link& b) { return a.path < b.path; });
  return taken;
}

void HardLinks::forget() {
  const std::scoped_lock lock(mutex_);
  firsts_.clear();
  links_.clear();
}

}  // namespace engine
