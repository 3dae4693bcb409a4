#include "agent/plan/survey.h"

#include <sys/stat.h>
#include <sys/sysinfo.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "agent/plan/survey_mounts.h"
#include "agent/plan/survey_services.h"
#include "host/accounts.h"
#include "host/file.h"
#include "host/mounts.h"

namespace agent {

namespace {

// The largest id of a file of accounts, which may own no file yet.
void surveyAccounts(const char* path, long long& largest, std::string& where) {
  for (const uint32_t id : host::parseAccountIds(host::readFile(path).value_or(""))) {
    // The last two mean nobody.
    constexpr uint32_t kNobody = 4294967294U;
    if (id <= largest || id >= kNobody) continue;
    largest = id;
    where = path;
  }
}

void surveySwap(Survey& survey) {
  std::istringstream lines(host::readFile("/proc/swaps").value_or(""));
  std::string line;
  std::getline(lines, line);
  while (std::getline(lines, line)) {
    std::istringstream fields(line);
    std::string path, type;
    long long kilobytes = 0;
    if (!(fields >> path >> type >> kilobytes) || type != "file") continue;
    survey.swapFiles.push_back({host::unescaped(path), kilobytes * 1024});
  }
}

bool isFilled(const std::string& directory) {
  std::error_code error;
  const std::filesystem::directory_iterator entries(directory, error);
  return !error && entries != std::filesystem::directory_iterator();
}

}  // namespace

Survey surveyHere(const SurveyRequest& asked) {
  Survey survey;
  SurveyRequest request = asked;
  surveySwap(survey);
  for (const SwapFile& swap : survey.swapFiles) request.excludes.push_back(swap.path);
  surveyFileSystems(request, survey);
  surveyAccounts("/etc/passwd", survey.largestUid, survey.largestUidPath);
  surveyAccounts("/etc/group", survey.largestGid, survey.largestGidPath);
  struct stat lastlog;
  if (stat("/var/log/lastlog", &lastlog) == 0) {
    survey.lastlogBytes = static_cast<long long>(lastlog.st_size);
    survey.lastlogAllocated = static_cast<long long>(lastlog.st_blocks) * 512;
  }
  for (const char* place :
       {"/var/lib/docker/overlay2", "/var/lib/docker/aufs", "/var/lib/docker/btrfs",
        "/var/lib/docker/devicemapper", "/var/lib/docker/vfs", "/var/lib/docker/zfs",
        "/var/lib/docker/containers", "/var/lib/containerd/io.containerd.snapshotter.v1.overlayfs",
        "/var/lib/containers/storage", "/var/lib/snapd/snaps", "/var/lib/lxc", "/var/lib/lxd",
        "/var/lib/libvirt/images"}) {
    if (isFilled(place)) survey.nestedStorage.push_back(place);
  }
  survey.processors = get_nprocs();
  surveyServices(survey);
  return survey;
}

}  // namespace agent
