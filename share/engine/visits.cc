#include "share/engine/visits.h"

#include <algorithm>
#include <cerrno>

namespace engine {

bool Visits::goesEverywhere(dev_t device, std::string_view directory) const {
  return known_.devices.count(device) == 0 ||
         std::any_of(known_.elsewhere.begin(), known_.elsewhere.end(),
                     [&](const std::string& top) { return isAtOrBelow(directory, top); });
}

void addPlace(Places& places, const std::string& directory, const std::set<std::string>& names) {
  const auto [at, isNew] = places.try_emplace(directory, names);
  if (isNew || at->second.empty()) return;
  if (names.empty())
    at->second.clear();
  else
    at->second.insert(names.begin(), names.end());
}

bool Visits::claim(const std::string& directory) {
  const std::scoped_lock lock(mutex_);
  Claim& claim = claimed_[directory];
  if (claim.whole) return false;
  if (claim.round == round_ && !claim.names.empty()) {
    later_.insert(directory);
    return false;
  }
  claim.whole = true;
  return true;
}

bool Visits::claimAll(const Job& job) {
  const std::scoped_lock lock(mutex_);
  Claim& claim = claimed_[job.directory];
  for (const std::string& name : job.names) claim.names.erase(name);
  return !std::exchange(claim.whole, true);
}

// Of the names that are to be looked at, none where it was all looked at, those that were
// not so yet; all of it where there are none. False if there is nothing to do.
bool Visits::claimNames(const std::string& directory, Job& job) {
  const std::scoped_lock lock(mutex_);
  Claim& claim = claimed_[directory];
  if (claim.whole) return false;
  if (job.names.empty()) return true;
  std::erase_if(job.names,
                [&](const std::string& name) { return !claim.names.insert(name).second; });
  claim.round = round_;
  return !job.names.empty();
}

std::set<std::string> Visits::seen(const std::string& directory) const {
  const std::scoped_lock lock(mutex_);
  const auto at = claimed_.find(directory);
  return at == claimed_.end() ? std::set<std::string>() : at->second.names;
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

// The names in the manifest of the files that are looked for, and, the first time, the
// directories of which nothing is known: of these the highest will do.
void Visits::search(Places& found) {
  std::set<std::string> unknown;
  std::set<FileId> wanted;
  std::unordered_set<std::string> gone;
  {
    const std::scoped_lock lock(mutex_);
    std::set_difference(linked_.begin(), linked_.end(), searched_.begin(), searched_.end(),
                        std::inserter(wanted, wanted.end()));
    linked_.clear();
    gone.swap(newlyGone_);
  }
  if (begun_ && wanted.empty() && gone.empty()) return;
  searched_.insert(wanted.begin(), wanted.end());
  std::set<FileId> lost;  // names of these have gone with their directories
  before_.forEachPart([&](const Manifest::Part& part) {
    const bool isLost = isGone(gone, part.path);
    const size_t slash = part.path.rfind('/');
    const std::string above(part.path.substr(0, slash == std::string_view::npos ? 0 : slash));
    if (!begun_ && goesEverywhere(part.own.device, part.path) && unknown.count(above) == 0)
      unknown.emplace(part.path);
    if (!isLost && wanted.empty()) return;
    part.forEachEntry([&](std::string_view name, const Known& known) {
      const FileId file(known.device, known.inode);
      if (isLost && known.linked) lost.insert(file);
      if (wanted.count(file) > 0) addPlace(found, std::string(part.path), {std::string(name)});
    });
  });
  for (const std::string& directory : unknown) addPlace(found, directory, {});
  begun_ = true;
  const std::scoped_lock lock(mutex_);
  linked_.merge(lost);
}

// Something was mounted or unmounted there, a file perhaps.
void Visits::addUnknown(const Tree& tree, const std::string& path, Places& places) {
  if (tree.openDirectory(path) || errno != ENOTDIR) return addPlace(places, path, {});
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos)
    addPlace(places, "", {path});
  else
    addPlace(places, path.substr(0, slash), {path.substr(slash + 1)});
}

std::vector<Job> Visits::next(const Tree& tree, const Rules& rules) {
  Places places;
  if (!begun_) {
    linked_ = known_.files;
    places = known_.directories;
    for (const std::string& path : known_.elsewhere) addUnknown(tree, path, places);
  }
  {
    const std::scoped_lock lock(mutex_);
    ++round_;
    for (const std::string& directory : later_) addPlace(places, directory, {});
    later_.clear();
  }
  std::vector<Job> jobs;
  do {
    search(places);
    for (const auto& [directory, names] : places) {
      // What is no longer there is told by what is above it.
      if (isExcluded(rules, directory)) continue;
      if (!tree.openDirectory(directory) && saysMissing(errno)) continue;
      Job job{directory, {names.begin(), names.end()}, false};
      if (claimNames(directory, job)) jobs.push_back(std::move(job));
    }
    places.clear();
    const std::scoped_lock lock(mutex_);
    if (linked_.empty() && newlyGone_.empty()) break;
  } while (jobs.empty());
  return jobs;
}

void Visits::takeOver(ManifestWriter& after) const {
  const std::scoped_lock lock(mutex_);
  before_.forEachPart([&](const Manifest::Part& part) {
    if (isGone(gone_, part.path)) return;
    const auto claim = claimed_.find(std::string(part.path));
    if (claim == claimed_.end())
      after.add(part.path, part.bytes);
    else if (!claim->second.whole)
      after.add(part.path, part.bytesWithout(claim->second.names));
  });
}

}  // namespace engine
