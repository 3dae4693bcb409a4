#include "share/engine/change_watch.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <utility>

#include "share/engine/changed_places.h"
#include "share/engine/mapped_files.h"
#include "share/engine/payload.h"
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
  expectEnd(from);
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

void ChangeWatch::take() {
  answer_.reset();
  if (!tracking_) return;
  then_ = std::move(now_);
  now_ = {mountsBelow(top_, rules_), {}, {}};
  answer_ = tracking_.take();
  // Later: what was opened before then is told, or still open now.
  now_.written = openForWriting();
  // An earlier process did the walk before this one.
  if (answer_ && !std::exchange(hasTaken_, true) && !answer_->note.empty())
    then_ = takeMoment(answer_->note);
}

How ChangeWatch::howKnown(const MountBelow& mount) const {
  if (!answer_) return How::kUnwatched;
  if (!isAmong(then_.mounts, mount)) return How::kMounted;
  const std::vector<dev_t>& devices = answer_->devices;
  if (!tellsOfChanges(mount.type) ||
      std::find(devices.begin(), devices.end(), mount.superblock) == devices.end())
    return How::kUnwatchable;
  return answer_->complete ? How::kTracked : How::kTooMuch;
}

ChangesKnown ChangeWatch::known() const {
  ChangesKnown known;
  std::vector<MountBelow> tracked;
  for (const MountBelow& mount : now_.mounts) {
    const How how = howKnown(mount);
    if (how == How::kMounted) known.elsewhere.push_back(mount.path);
    if (how != How::kTracked) continue;
    known.devices.insert(mount.device);
    tracked.push_back(mount);
  }
  for (const MountBelow& mount : then_.mounts)
    if (!isAmong(now_.mounts, mount)) known.elsewhere.push_back(mount.path);
  for (const std::string& directory : then_.incomplete) addPlace(known.directories, directory, {});
  if (answer_) findPlaces(tree_, top_, tracked, answer_->changes, known);
  return known;
}

void ChangeWatch::makeReport(const ChangesKnown& known) {
  report_ = {};
  for (const MountBelow& mount : answer_ ? now_.mounts : mountsBelow(top_, rules_)) {
    How how = howKnown(mount);
    if (how == How::kTracked && known.devices.count(mount.device) == 0) how = How::kUnwatchable;
    if (how == How::kTracked || !holdsNothing(absolutePath(top_, mount.path)))
      report_.places.push_back({mount.path, mount.type, how});
  }
}

std::unique_ptr<Visits> ChangeWatch::plan(const Manifest* before,
                                          const std::vector<FileId>& mapped) {
  if (before == nullptr) return nullptr;
  ChangesKnown changes = known();
  makeReport(changes);
  if (changes.devices.empty()) return nullptr;
  for (const auto& files : {before->suspects(), then_.written, now_.written, mapped})
    changes.files.insert(files.begin(), files.end());
  return std::make_unique<Visits>(*before, std::move(changes));
}

void ChangeWatch::setIncomplete(std::set<std::string> directories) {
  now_.incomplete = std::move(directories);
}

void ChangeWatch::keep(const std::string& identity, std::chrono::seconds life) {
  Buffer note;
  putMoment(note, now_);
  tracking_.keep(identity, std::string(note.view()), life);
}

}  // namespace engine
