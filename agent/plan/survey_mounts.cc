#include "agent/plan/survey_mounts.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <set>
#include <sstream>

#include "agent/plan/quota_survey.h"
#include "agent/plan/survey_files.h"
#include "agent/wire/request_context.h"
#include "host/file.h"
#include "host/mounts.h"

namespace agent {

namespace {

constexpr long long kLongestTimeout = 60;  // seconds

// The types that have no device of their own.
std::set<std::string> virtualTypes() {
  std::set<std::string> types;
  std::istringstream lines(host::readFile("/proc/filesystems").value_or(""));
  for (std::string line; std::getline(lines, line);) {
    if (line.compare(0, 6, "nodev\t") == 0) types.insert(line.substr(6));
  }
  return types;
}

// People write mount points in fstab with a slash at the end, too.
std::vector<host::TableLine> tableOf(const char* path) {
  std::vector<host::TableLine> table = host::parseMountTable(host::readFile(path).value_or(""));
  for (host::TableLine& line : table) {
    while (line.point.size() > 1 && line.point.back() == '/') line.point.pop_back();
  }
  return table;
}

// A local file system at its mount point.
struct Seen {
  size_t place;  // in Survey::fileSystems
  dev_t device;
  ino_t inode;
  std::string root;
};

// Whether the folder that is mounted at `seen` is also met below `other`, on a way
// that is copied.
bool isMetBelow(const Seen& seen, const std::string& point, const Seen& other,
                const std::string& otherPoint, const std::vector<std::string>& excludes) {
  if (seen.device != other.device) return false;
  const std::string above = other.root == "/" ? "" : other.root;
  if (seen.root != other.root && seen.root.compare(0, above.size() + 1, above + "/") != 0)
    return false;
  const std::string rest = seen.root == other.root ? "" : seen.root.substr(above.size());
  const std::string path = (otherPoint == "/" && !rest.empty() ? "" : otherPoint) + rest;
  // Another mount may hide it, and then its files are nowhere else.
  struct stat info;
  return path != point && !isLeftOut(path, excludes) && stat(path.c_str(), &info) == 0 &&
         info.st_dev == seen.device && info.st_ino == seen.inode;
}

// Leaves out what is a second view of files that are copied anyway. Larger views
// come first, and among equal ones the one that was mounted first.
void leaveOutSecondViews(std::vector<Seen> seen, const std::vector<std::string>& excludes,
                         std::vector<SurveyedFileSystem>& fileSystems) {
  std::stable_sort(seen.begin(), seen.end(),
                   [](const Seen& a, const Seen& b) { return a.root.size() < b.root.size(); });
  std::vector<Seen> copied;
  for (const Seen& one : seen) {
    SurveyedFileSystem& found = fileSystems[one.place];
    const bool second = std::any_of(copied.begin(), copied.end(), [&](const Seen& other) {
      return isMetBelow(one, found.mountPoint, other, fileSystems[other.place].mountPoint,
                        excludes);
    });
    if (second) {
      found.copied = false;
      found.reason = "a second view of other files";
    }
    if (found.copied) copied.push_back(one);
  }
}

// Those that are mounted, and those that fstab names besides.
void listFileSystems(const SurveyRequest& request, const std::vector<host::TableLine>& mounts,
                     Survey& survey) {
  const std::set<std::string> kernelOnly = virtualTypes();
  std::set<std::string> points;
  std::vector<Seen> seen;
  std::map<std::string, std::string> roots;
  for (const host::MountInfo& mount :
       host::parseMountInfo(host::readFile("/proc/self/mountinfo").value_or(""))) {
    roots[mount.point] = mount.root;
  }
  // Of mounts over each other only the last is seen.
  std::map<std::string, size_t> last;
  for (size_t i = 0; i < mounts.size(); ++i) last[mounts[i].point] = i;
  for (size_t i = 0; i < mounts.size(); ++i) {
    const host::TableLine& mount = mounts[i];
    if (last[mount.point] != i) continue;
    const bool remote = isRemoteType(mount.type);
    const bool root = mount.point == "/";
    if (!root && !remote && kernelOnly.count(mount.type)) continue;
    if (mount.type == "autofs" || mount.type == "squashfs") continue;
    SurveyedFileSystem found{mount.device, mount.point, mount.type, mount.options};
    found.mounted = true;
    found.remote = remote;
    points.insert(mount.point);
    struct stat info;
    // A server of files that is gone would keep who asks waiting.
    if (!remote && stat(mount.point.c_str(), &info) != 0) {
      // What a user mounted may be closed to everybody else.
      found.reason = "cannot be read";
    } else if (!remote) {
      // One file in another's place is copied as what it shows.
      if (!S_ISDIR(info.st_mode)) continue;
      found.copied = !isLeftOut(mount.point, request.excludes);
      seen.push_back({survey.fileSystems.size(), info.st_dev, info.st_ino, roots[mount.point]});
      struct statvfs figures;
      if (statvfs(mount.point.c_str(), &figures) == 0) {
        found.bytes = static_cast<long long>(figures.f_blocks - figures.f_bfree) *
                      static_cast<long long>(figures.f_frsize);
        found.files = static_cast<long long>(figures.f_files - figures.f_ffree);
      }
    }
    survey.fileSystems.push_back(found);
  }
  leaveOutSecondViews(std::move(seen), request.excludes, survey.fileSystems);
  for (const SurveyedFileSystem& found : survey.fileSystems) {
    SurveyedQuotas quotas;
    if (found.copied && surveyQuotas(found.device, found.mountPoint, found.options, quotas)) {
      survey.quotas.push_back(quotas);
    }
  }
  for (const host::TableLine& line : tableOf("/etc/fstab")) {
    if (line.point.empty() || line.point[0] != '/' || points.count(line.point)) continue;
    if (line.point == "/" || line.hasOption("noauto") || line.type == "swap") continue;
    if (kernelOnly.count(line.type) && !isRemoteType(line.type)) continue;
    SurveyedFileSystem found{line.device, line.point, line.type, line.options};
    found.remote = isRemoteType(line.type);
    survey.fileSystems.push_back(found);
  }
}

}  // namespace

bool isLeftOut(const std::string& mountPoint, const std::vector<std::string>& excludes) {
  for (std::string path = mountPoint; path.size() > 1;) {
    for (const std::string& pattern : excludes) {
      if (pattern == path || pattern == path + "/*") return true;
    }
    const size_t slash = path.rfind('/');
    path.resize(slash == std::string::npos ? 0 : slash);
  }
  return false;
}

bool isRemoteType(const std::string& type) {
  static const std::set<std::string> types = {
      "nfs",        "nfs4",      "cifs",  "smb3",      "smbfs",  "ncpfs",      "afs",
      "ceph",       "9p",        "ocfs2", "gfs2",      "lustre", "glusterfs",  "fuse.glusterfs",
      "fuse.sshfs", "fuse.s3fs", "davfs", "fuse.ceph", "beegfs", "fuse.rclone"};
  return types.count(type) != 0;
}

void surveyFileSystems(const SurveyRequest& request, Survey& survey) {
  const std::vector<host::TableLine> mounts = tableOf("/proc/self/mounts");
  listFileSystems(request, mounts, survey);
  std::map<std::string, bool> copied;
  for (const host::TableLine& mount : mounts) copied[mount.point] = false;
  for (const SurveyedFileSystem& found : survey.fileSystems) {
    if (found.copied) copied[found.mountPoint] = true;
  }
  const CurrentRequest* current = CurrentRequest::get();
  const FileFindings files =
      lookAtFiles("/", copied, request.excludes,
                  std::chrono::seconds(std::clamp(request.timeout, 0LL, kLongestTimeout)),
                  current ? current->cancel.get() : nullptr);
  survey.scanComplete = files.complete;
  survey.immutableFiles = files.immutableFiles;
  survey.immutableCount = files.immutableCount;
  survey.largestUid = files.largestUid;
  survey.largestUidPath = files.largestUidPath;
  survey.largestGid = files.largestGid;
  survey.largestGidPath = files.largestGidPath;
  if (!files.complete) return;
  for (SurveyedFileSystem& found : survey.fileSystems) {
    if (!found.copied) continue;
    const auto count = files.perMount.find(found.mountPoint);
    found.counted = true;
    found.bytes = count == files.perMount.end() ? 0 : count->second.bytes;
    found.files = count == files.perMount.end() ? 0 : count->second.files;
  }
}

}  // namespace agent
