#include "share/engine/change_watch.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <optional>

#include "share/engine/changed_places.h"
#include "share/engine/mapped_files.h"
#include "share/engine/records.h"

namespace engine {

namespace {

using How = ChangesReport::How;

bool isAmong(const std::vector<MountBelow>& mounts, const MountBelow& mount) {
  return std::find(mounts.begin(), mounts.end(), mount) != mounts.end();
}

// As /proc is: not worth a word.
bool holdsNothing(const std::string& path) {
  struct statvfs status {};
  return ::statvfs(path.c_str(), &status) == 0 && status.f_blocks == 0;
}

How howKnown(const MountBelow& mount, const TrackerAnswer& answer, const Moment& then) {
  if (!isAmong(then.mounts, mount)) return How::kMounted;
  const bool watched = std::find(answer.devices.begin(), answer.devices.end(), mount.superblock) !=
                       answer.devices.end();
  if (!watched || !tellsOfChanges(mount.type)) return How::kUnwatchable;
  return answer.complete ? How::kTracked : How::kTooMuch;
}

}  // namespace

void putMoment(Buffer& to, const Moment& moment) {
  putMounts(to, moment.mounts);
  putNumber(to, moment.written.size());
  for (const auto& [device, inode] : moment.written) {
    putNumber(to, device);
    putNumber(to, inode);
  }
  putNumber(to, moment.incomplete.size());
  for (const std::string& directory : moment.incomplete) putText(to, directory);
}

Moment takeMoment(std::string_view bytes) {
  Decoder from(bytes);
  Moment moment;
  moment.mounts = takeMounts(from);
  const std::uint64_t written = from.number(from.left(), "number of files");
  for (std::uint64_t i = 0; i < written; ++i) {
    const dev_t device = from.number();
    moment.written.emplace_back(device, from.number());
  }
  const std::uint64_t incomplete = from.number(from.left(), "number of directories");
  for (std::uint64_t i = 0; i < incomplete; ++i)
    moment.incomplete.emplace(from.text(kLongestPath, "path"));
  return moment;
}

ChangeWatch::ChangeWatch(const Tree& tree, const Rules& rules, const std::string& folder,
                         std::uint64_t mostPlaces)
    : tree_(tree), rules_(rules), tracking_(folder, folder.empty() ? 0 : mostPlaces) {
  if (const std::optional<std::string> path = pathOf(tree.root())) top_ = *path;
}

void ChangeWatch::begin(const std::string& identity) {
  if (top_.empty()) return;
  if (identity.empty())
    tracking_.start(top_, mountsBelow(top_, rules_));
  else
    tracking_.resume(identity);
}

// In place of what was said of it before.
void ChangeWatch::addToReport(const MountBelow& mount, How how) {
  if (how != How::kTracked && holdsNothing(top_ + "/" + mount.path)) return;
  std::erase_if(report_.places,
                [&](const ChangesReport::Place& place) { return place.path == mount.path; });
  report_.places.push_back({mount.path, mount.type, how});
}

ChangesKnown ChangeWatch::compare(const TrackerAnswer& answer, const Moment& then) {
  ChangesKnown known;
  for (const MountBelow& mount : last_.mounts) {
    const How how = howKnown(mount, answer, then);
    addToReport(mount, how);
    if (how == How::kTracked) known.devices.insert(mount.device);
    if (how == How::kMounted) known.elsewhere.push_back(mount.path);
  }
  for (const MountBelow& mount : then.mounts)
    if (!isAmong(last_.mounts, mount)) known.elsewhere.push_back(mount.path);
  known.directories = then.incomplete;
  return known;
}

std::unique_ptr<Visits> ChangeWatch::plan(const Manifest* before) {
  report_ = {};
  Moment then = std::exchange(last_, Moment{});
  last_.mounts = mountsBelow(top_, rules_);
  last_.written = openForWriting();
  std::optional<TrackerAnswer> answer = tracking_.take();
  if (before == nullptr) {
    planned_ = true;
    return nullptr;
  }
  if (!answer) {
    for (const MountBelow& mount : last_.mounts) addToReport(mount, How::kUnwatched);
    return nullptr;
  }
  if (!std::exchange(planned_, true)) then = takeMoment(answer->note);
  ChangesKnown known = compare(*answer, then);
  std::vector<MountBelow> tracked;
  for (const MountBelow& mount : last_.mounts)
    if (known.devices.count(mount.device) > 0) tracked.push_back(mount);
  findPlaces(tree_, top_, tracked, answer->objects, known);
  for (const MountBelow& mount : tracked)
    if (known.devices.count(mount.device) == 0) addToReport(mount, How::kUnwatchable);
  if (known.devices.empty()) return nullptr;
  for (const auto& files : {before->suspects(), then.written, last_.written, writableMappings()})
    known.files.insert(files.begin(), files.end());
  return std::make_unique<Visits>(*before, std::move(known));
}

void ChangeWatch::setIncomplete(std::set<std::string> directories) {
  last_.incomplete = std::move(directories);
}

void ChangeWatch::keep(const std::string& identity, std::chrono::seconds life) {
  Buffer note;
  putMoment(note, last_);
  tracking_.keep(identity, std::string(note.view()), life);
}

}  // namespace engine
