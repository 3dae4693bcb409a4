#include "agent/journal/recovery.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "agent/journal/leftovers.h"
#include "framework/qxctl.h"
#include "host/clock.h"
#include "host/container.h"
#include "host/error.h"
#include "host/file.h"
#include "host/lock.h"
#include "host/mounts.h"
#include "host/paths.h"
#include "host/place.h"
#include "host/process.h"
#include "host/state.h"
#include "host/text.h"
#include "host/visible.h"

namespace agent {

namespace {

using host::MigrationState;

constexpr char kSkipLock[] = "--skiplock";

bool isRunning(unsigned ctid) {
  qxctl_env_status_t status = {};
  if (qxctl_get_env_status(ctid, &status, QXCTL_STATUS_RUNNING) != 0) {
    host::failErrno("cannot tell whether container %u runs", ctid);
  }
  return (status.mask & QXCTL_STATUS_RUNNING) != 0;
}

// One interrupted migration, with its container's lock held.
class Recovery {
 public:
  Recovery(host::MigrationJournal& journal, Copy copy)
      : record_(journal.record),
        copy_(copy),
        id_(std::to_string(record_.ctid)),
        container_(host::findContainer(record_.ctid)),
        mine_(container_.configured && container_.var(host::kMigrationVariable) == journal.name) {}

  MigrationState run() {
    requireDisk();
    if (!mine_) {
      restoreKept();
    } else if (isRunning(record_.ctid)) {
      say("Container " + id_ + " runs, so somebody has taken it over: it was left as it is.");
    } else if (host::hasSucceeded(record_, "tuneDstSrv") && !isToBeGoneOnFrom()) {
      complete();
      return MigrationState::kSucceeded;
    } else if (wasRegisteredSince()) {
      say("Container " + id_ +
          " was registered since, so somebody has taken it over: it was left as it is. "
          "'qxctl destroy " +
          id_ + "' removes it.");
    } else {
      rollBack();
    }
    return MigrationState::kCleaned;
  }

  const std::vector<std::string>& texts() const { return texts_; }

 private:
  void say(const std::string& text) { texts_.push_back(text); }

  // Nobody can tell what is there, and without the configuration nobody would look again.
  void requireDisk() const {
    const std::string missing = host::unmountedPlace(record_.privateArea);
    if (missing.empty()) return;
    host::fail(host::ExitCode::kNotMounted,
               "the private area %s is on %s, which is not mounted: 'mount %s', and clean again",
               record_.privateArea.c_str(), missing.c_str(), missing.c_str());
  }

  // The configuration is written first and removed last, so without it nothing of
  // this migration is there, but that it may have taken back what an earlier one kept.
  void restoreKept() {
    const std::string& area = record_.privateArea;
    const std::string kept = keptAreaOf(area);
    if (!container_.configured && !record_.hadPrivateArea && record_.keptInode != 0 &&
        inodeOf(area) == record_.keptInode && !host::exists(kept)) {
      rename(area, kept);
      noteKept(kept);
      return;
    }
    if (host::hasBegun(record_, "createDstSrv") && (container_.configured || host::exists(area))) {
      say("What there is of container " + id_ + " is not of this migration: it was left as it is.");
      return;
    }
    if (isOfMigrations(record_, kept)) noteKept(kept);
    say("Nothing of it was left.");
  }

  // Whoever migrates the same server again wants what it has become since, as long as
  // nobody can have taken over what was complete.
  bool isToBeGoneOnFrom() const { return copy_ == Copy::kKept && !wasRegisteredSince(); }

  void complete() {
    unmount();
    host::runProgram({host::kQxctl, kSkipLock, "convert", id_});
    say("Container " + id_ + " was complete already, and is registered now." + servicesText());
  }

  // The server's end is the last to finish, and only then does what it stopped stay so.
  std::string servicesText() const {
    if (record_.services.empty()) return "";
    const auto& stages = record_.stages;
    const auto isFinish = [](const host::MigrationStage& stage) { return stage.name == "finish"; };
    if (std::count_if(stages.begin(), stages.end(), isFinish) < 2) {
      return " The server was not told, and starts its services again.";
    }
    const std::string services = host::visibleLine(host::joined(record_.services));
    if (stages.back().result == 0) return " Stopped on the server: " + services + ".";
    return " It is not known whether the server was told: if it was, these are stopped there: " +
           services + ".";
  }

  // A template is registered when it is unpacked, and what an earlier migration or a former
  // container left may have been before. Whoever starts what came of a template adapts it to
  // its configuration, and the marker for that goes.
  bool wasRegisteredSince() const {
    const uint64_t marker = inodeOf(container_.inPrivateArea(host::kRegistrationMarker));
    if (marker == 0) return false;
    const bool isToBeAdapted = host::exists(container_.inPrivateArea(host::kAdaptMarker));
    if (marker == record_.registrationInode) return record_.hadAdaptMarker && !isToBeAdapted;
    return record_.osTemplate.empty() || !isToBeAdapted;
  }

  void rollBack() {
    unmount();
    const std::string& area = container_.privateArea;
    const std::string kept = keptAreaOf(area);
    const bool keep = copy_ == Copy::kKept || (copy_ == Copy::kAsTold && record_.keepOnFailure);
    if (record_.hadPrivateArea) {
      removeConfiguration();
      say("The configuration of container " + id_ + " was removed. Its private area " + area +
          " was there before, and stays as it is now.");
    } else if (keep && host::hasBegun(record_, "rSync") && host::exists(area)) {
      if (host::exists(kept)) removeKeptArea(kept);
      rename(area, kept);
      removeConfiguration();
      noteKept(kept);
    } else if (keep && !host::exists(area) && isOfMigrations(record_, kept)) {
      removeConfiguration();
      noteKept(kept);
    } else {
      host::runProgram({host::kQxctl, kSkipLock, "destroy", id_});
      say("Container " + id_ + " was removed.");
    }
  }

  void unmount() {
    try {
      host::runProgram({host::kQxctl, kSkipLock, "umount", id_});
    } catch (const host::Error&) {
      // That it is not mounted is no obstacle.
      if (host::isMounted(container_)) throw;
    }
  }

  void removeConfiguration() {
    const std::string path = host::configPath(record_.ctid);
    if (unlink(path.c_str()) != 0 && errno != ENOENT) {
      host::failErrno("cannot remove %s", path.c_str());
    }
    // The empty mount point; files that somebody put there stay.
    rmdir(container_.root.c_str());
  }

  static void rename(const std::string& from, const std::string& to) {
    if (std::rename(from.c_str(), to.c_str()) != 0) {
      host::failErrno("cannot rename %s to %s", from.c_str(), to.c_str());
    }
  }

  void noteKept(const std::string& kept) {
    record_.keptArea = kept;
    record_.keptAreaInode = inodeOf(kept);
    say("What was copied is kept in " + kept + " for the next attempt.");
  }

  host::MigrationRecord& record_;
  const Copy copy_;
  const std::string id_;
  const host::Container container_;
  const bool mine_;
  std::vector<std::string> texts_;
};

}  // namespace

std::vector<std::string> recover(const host::MigrationJournal& interrupted, Copy copy) {
  const unsigned ctid = interrupted.record.ctid;
  const std::string lockDir = host::findContainer(ctid).lockDir;
  stopPrograms(interrupted.record.process);
  removeDeadLock(lockDir, ctid, interrupted.record.process);
  const host::ContainerLock lock(lockDir, ctid, "finishing an interrupted migration");
  // Whoever held the lock before may have finished it.
  host::MigrationJournal journal = host::readJournal(interrupted.name);
  if (!host::isInterrupted(journal.record)) return {};
  Recovery recovery(journal, copy);
  const MigrationState state = recovery.run();
  removeTemporaryFolders();
  for (const std::string& text : recovery.texts()) journal.record.texts.push_back(text);
  journal.record.state = state;
  journal.record.updated = host::utcNow();
  host::writeJournal(journal);
  return recovery.texts();
}

}  // namespace agent
