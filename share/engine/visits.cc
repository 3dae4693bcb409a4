#include "share/engine/visits.h"

#include <algorithm>
#include <cerrno>

namespace engine {

bool Visits::goesEverywhere(dev_t device, std::string_view directory) const {
  return known_.devices.count(device) == 0 ||
         std::any_of(known_.elsewhere.begin(), known_.elsewhere.end(),
                     [&](const std::string& top) { return isAtOrBelow(directory, top); });
}

bool Visits::claim(const std::string& directory) {
  const std::scoped_lock lock(mutex_);
  return claimed_.insert(directory).second;
}

void Visits::noteLinked(const FileId& file) {
  const std::scoped_lock lock(mutex_);
  linked_.insert(file);
}

void Visits::noteGone(const std::string& directory) {
  const std::scoped_lock lock(mutex_);
  if (gone_.insert(directory).second) newlyGone_.insert(directory);
}

std::uint64_t Visits::count() const {
  const std::scoped_lock lock(mutex_);
  return claimed_.size();
}

bool Visits::isGone(const std::unordered_set<std::string>& gone, std::string_view path) const {
  while (!gone.empty() && !path.empty()) {
    if (gone.count(std::string(path)) > 0) return true;
    const size_t slash = path.rfind('/');
    path = path.substr(0, slash == std::string_view::npos ? 0 : slash);
  }
  return false;
}

// The directories of the manifest that hold names of the files that are looked for, and,
// the first time, those of which nothing is known: of these the highest will do.
std::set<std::string> Visits::search() {
  std::set<std::string> found;
  std::set<FileId> wanted;
  std::unordered_set<std::string> gone;
  {
    const std::scoped_lock lock(mutex_);
    std::set_difference(linked_.begin(), linked_.end(), searched_.begin(), searched_.end(),
                        std::inserter(wanted, wanted.end()));
    linked_.clear();
    gone.swap(newlyGone_);
  }
  if (begun_ && wanted.empty() && gone.empty()) return found;
  searched_.insert(wanted.begin(), wanted.end());
  std::set<FileId> lost;  // names of these have gone with their directories
  before_.forEachPart([&](const Manifest::Part& part) {
    const bool isLost = isGone(gone, part.path);
    const size_t slash = part.path.rfind('/');
    const std::string above(part.path.substr(0, slash == std::string_view::npos ? 0 : slash));
    if (!begun_ && goesEverywhere(part.own.device, part.path) && found.count(above) == 0)
      found.emplace(part.path);
    if (!isLost && wanted.empty()) return;
    part.forEachEntry([&](std::string_view, const Known& known) {
      const FileId file(known.device, known.inode);
      if (isLost && known.linked) lost.insert(file);
      if (wanted.count(file) > 0) found.emplace(part.path);
    });
  });
  begun_ = true;
  const std::scoped_lock lock(mutex_);
  linked_.merge(lost);
  return found;
}

std::vector<std::string> Visits::next(const Tree& tree, const Rules& rules) {
  std::set<std::string> places;
  if (!begun_) {
    linked_ = known_.files;
    places = known_.directories;
    places.insert(known_.elsewhere.begin(), known_.elsewhere.end());
  }
  std::vector<std::string> directories;
  do {
    places.merge(search());
    for (const std::string& place : places) {
      {
        const std::scoped_lock lock(mutex_);
        if (claimed_.count(place) > 0) continue;
      }
      // What is no longer there is told by what is above it.
      if (isExcluded(rules, place)) continue;
      if (tree.openDirectory(place) || !saysMissing(errno)) directories.push_back(place);
    }
    places.clear();
    const std::scoped_lock lock(mutex_);
    if (linked_.empty() && newlyGone_.empty()) break;
  } while (directories.empty());
  return directories;
}

void Visits::takeOver(ManifestWriter& after) const {
  const std::scoped_lock lock(mutex_);
  before_.forEachPart([&](const Manifest::Part& part) {
    if (claimed_.count(std::string(part.path)) == 0 && !isGone(gone_, part.path))
      after.add(part.path, part.bytes);
  });
}

}  // namespace engine
