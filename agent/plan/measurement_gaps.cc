#include "agent/plan/measurement_gaps.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/statvfs.h>

#include <cctype>
#include <cerrno>
#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>

#include "agent/plan/amounts.h"
#include "agent/plan/survey_mounts.h"
#include "agent/system/last_error.h"
#include "host/mounts.h"

namespace agent {

namespace {

namespace fs = std::filesystem;

// A difference that comes and goes is none.
constexpr long long kPlausible = 2;

bool isNumber(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// Some program answers for it, here or on another machine.
bool mayBeSilent(const std::string& type) { return isRemoteType(type) || type.starts_with("fuse"); }

// Mount points that have been asked and have not answered yet.
struct Asked {
  std::mutex mutex;
  std::condition_variable answered;
  std::set<std::string> silent;
};

}  // namespace

std::vector<std::string> measurementGaps(const Counted& counted, long long openFiles) {
  std::vector<std::string> gaps;
  if (openFiles > kPlausible * static_cast<long long>(counted.files)) {
    gaps.push_back("The server has " + countText(openFiles) +
                   " open files, and the usual way of counting saw " + countText(counted.files) +
                   " of them: NUMFILE is too small. Give it in --config.");
  }
  // The list of rules has a title at least.
  if (counted.rules == 0) {
    gaps.emplace_back(
        "The server's firewall rules and routes could not be counted (iptables, ip): "
        "NUMIPTENT is the least there is.");
  }
  return gaps;
}

long long countOpenFiles(const std::string& proc) {
  long long count = 0;
  std::error_code error;
  for (const auto& process : fs::directory_iterator(proc, error)) {
    if (!isNumber(process.path().filename())) continue;
    fs::directory_iterator files(process.path() / "fd", error);
    for (; !error && files != fs::directory_iterator(); files.increment(error)) ++count;
  }
  return count;
}

std::vector<std::string> deadMounts(std::chrono::milliseconds patience) {
  const auto asked = std::make_shared<Asked>();
  for (const host::MountInfo& mount : host::currentMounts()) {
    if (mayBeSilent(mount.type)) asked->silent.insert(mount.point);
  }
  std::unique_lock lock(asked->mutex);
  for (const std::string& point : asked->silent) {
    // It may wait until the machine is switched off, and nobody can wait for it.
    std::thread([asked, point]() {
      struct statvfs figures;
      statvfs(point.c_str(), &figures);
      const std::lock_guard inside(asked->mutex);
      asked->silent.erase(point);
      asked->answered.notify_all();
    }).detach();
  }
  asked->answered.wait_for(lock, patience, [&]() { return asked->silent.empty(); });
  return {asked->silent.begin(), asked->silent.end()};
}

void hideMounts(const std::vector<std::string>& mountPoints) {
  const auto failed = [](const std::string& what) {
    throw std::runtime_error(what + ": " + errnoText(errno));
  };
  if (unshare(CLONE_NEWNS) != 0) failed("cannot leave the namespace of mounts");
  if (mount(nullptr, "/", nullptr, MS_REC | MS_SLAVE, nullptr) != 0) {
    failed("cannot separate the mounts");
  }
  for (const std::string& point : mountPoints) {
    if (umount2(point.c_str(), MNT_DETACH) != 0) failed("cannot hide '" + point + "'");
  }
}

}  // namespace agent
