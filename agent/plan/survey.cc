#include "agent/plan/survey.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysinfo.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>

#include "agent/plan/survey_files.h"
#include "agent/wire/request_context.h"
#include "framework/runner.h"
#include "host/file.h"

namespace agent {

namespace {

constexpr int commandSeconds = 10;
constexpr long long longestPatience = 60;  // seconds

// "\040" and the like, as mount tables have them.
std::string unescaped(const std::string& text) {
  std::string result;
  for (size_t i = 0; i < text.size(); ++i) {
    const auto octal = [&](size_t at) {
      return at < text.size() && text[at] >= '0' && text[at] <= '7';
    };
    if (text[i] == '\\' && octal(i + 1) && octal(i + 2) && octal(i + 3)) {
      result +=
          static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + text[i + 3] - '0');
      i += 3;
    } else {
      result += text[i];
    }
  }
  return result;
}

std::string contentsOf(const std::string& path) { return host::readFile(path).value_or(""); }

// The types that have no device of their own.
std::set<std::string> virtualTypes() {
  std::set<std::string> types;
  std::istringstream lines(contentsOf("/proc/filesystems"));
  for (std::string line; std::getline(lines, line);) {
    if (line.compare(0, 6, "nodev\t") == 0) types.insert(line.substr(6));
  }
  return types;
}

bool hasOption(const std::string& options, const std::string& name) {
  return ("," + options + ",").find("," + name + ",") != std::string::npos;
}

// Which folder of its file system each mount point shows (proc(5), mountinfo).
std::map<std::string, std::string> mountRoots() {
  std::map<std::string, std::string> roots;
  std::istringstream lines(contentsOf("/proc/self/mountinfo"));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string id, parent, device, root, point;
    if (words >> id >> parent >> device >> root >> point) roots[unescaped(point)] = unescaped(root);
  }
  return roots;
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

void surveyFileSystems(const SurveyRequest& request, Survey& survey) {
  const std::set<std::string> kernelOnly = virtualTypes();
  std::set<std::string> points;
  std::vector<Seen> seen;
  std::map<std::string, std::string> roots = mountRoots();
  const std::vector<MountLine> mounts = parseMounts(contentsOf("/proc/self/mounts"));
  // Of mounts over each other only the last is seen.
  std::map<std::string, size_t> last;
  for (size_t i = 0; i < mounts.size(); ++i) last[mounts[i].mountPoint] = i;
  for (size_t i = 0; i < mounts.size(); ++i) {
    const MountLine& mount = mounts[i];
    if (last[mount.mountPoint] != i) continue;
    const bool remote = isRemoteType(mount.type);
    const bool root = mount.mountPoint == "/";
    if (!root && !remote && kernelOnly.count(mount.type)) continue;
    if (mount.type == "autofs" || mount.type == "squashfs") continue;
    SurveyedFileSystem found{mount.device, mount.mountPoint, mount.type, mount.options};
    found.mounted = true;
    found.remote = remote;
    points.insert(mount.mountPoint);
    struct stat info;
    // A server of files that is gone would keep who asks waiting.
    if (!remote && stat(mount.mountPoint.c_str(), &info) != 0) {
      // What a user mounted may be closed to everybody else.
      found.reason = "cannot be read";
    } else if (!remote) {
      // One file in another's place is copied as what it shows.
      if (!S_ISDIR(info.st_mode)) continue;
      found.copied = !isLeftOut(mount.mountPoint, request.excludes);
      seen.push_back(
          {survey.fileSystems.size(), info.st_dev, info.st_ino, roots[mount.mountPoint]});
      struct statvfs figures;
      if (statvfs(mount.mountPoint.c_str(), &figures) == 0) {
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
  for (const MountLine& line : parseMounts(contentsOf("/etc/fstab"))) {
    if (line.mountPoint.empty() || line.mountPoint[0] != '/' || points.count(line.mountPoint))
      continue;
    if (line.mountPoint == "/" || hasOption(line.options, "noauto") || line.type == "swap")
      continue;
    if (kernelOnly.count(line.type) && !isRemoteType(line.type)) continue;
    SurveyedFileSystem found{line.device, line.mountPoint, line.type, line.options};
    found.remote = isRemoteType(line.type);
    survey.fileSystems.push_back(found);
  }

  std::map<std::string, bool> copied;
  for (const MountLine& mount : mounts) copied[mount.mountPoint] = false;
  for (const SurveyedFileSystem& found : survey.fileSystems) {
    if (found.copied) copied[found.mountPoint] = true;
  }
  const CurrentRequest* current = CurrentRequest::get();
  const FileFindings files =
      lookAtFiles("/", copied, request.excludes,
                  std::chrono::seconds(std::clamp(request.patience, 0LL, longestPatience)),
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

// The largest id of a file of accounts, which may own no file yet.
void surveyAccounts(const char* path, long long& largest, std::string& where) {
  std::istringstream lines(contentsOf(path));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string name, password, id;
    std::getline(fields, name, ':');
    std::getline(fields, password, ':');
    std::getline(fields, id, ':');
    const long long number = strtoll(id.c_str(), nullptr, 10);
    if (number <= largest || number >= 4294967294LL) continue;
    largest = number;
    where = path;
  }
}

void surveySwap(Survey& survey) {
  std::istringstream lines(contentsOf("/proc/swaps"));
  std::string line;
  std::getline(lines, line);
  while (std::getline(lines, line)) {
    std::istringstream fields(line);
    std::string path, type;
    long long kilobytes = 0;
    if (!(fields >> path >> type >> kilobytes) || type != "file") continue;
    survey.swapFiles.push_back({unescaped(path), kilobytes * 1024});
  }
}

bool isFilled(const std::string& directory) {
  std::error_code error;
  const std::filesystem::directory_iterator entries(directory, error);
  return !error && entries != std::filesystem::directory_iterator();
}

std::string outputOf(const char* const argv[]) {
  QXL::GenExec runner(262144);
  return runner.execWithOnlyError(argv, QXL::GenExecOutput, commandSeconds) == 0
             ? runner.getOutput(QXL::GenExecOutput)
             : std::string();
}

void surveyServices(Survey& survey) {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/etc/init.d", error)) {
    const std::string name = entry.path().filename();
    struct stat info;
    if (stat(entry.path().c_str(), &info) != 0 || !S_ISREG(info.st_mode)) continue;
    if (!(info.st_mode & S_IXUSR) || name == "rc" || name == "rcS" || name == "functions") continue;
    survey.initScripts.push_back(name);
  }
  std::sort(survey.initScripts.begin(), survey.initScripts.end());

  std::set<std::string> running;
  if (std::filesystem::exists("/run/systemd/system", error)) {
    const char* const version[] = {"systemctl", "--version", nullptr};
    std::istringstream words(outputOf(version));
    std::string name;
    words >> name >> survey.systemdVersion;
    const char* const units[] = {"systemctl",   "list-units", "--type=service", "--state=running",
                                 "--no-legend", "--no-pager", nullptr};
    std::istringstream lines(outputOf(units));
    for (std::string line; std::getline(lines, line);) {
      std::istringstream fields(line);
      std::string unit;
      fields >> unit;
      const size_t end = unit.rfind(".service");
      if (end != std::string::npos) running.insert(unit.substr(0, end));
    }
  } else {
    // Running an unknown script to ask for its status is not without effect on
    // every system; the process id it leaves is.
    for (const std::string& name : survey.initScripts) {
      for (const std::string& path : {"/run/" + name + ".pid", "/var/run/" + name + ".pid",
                                      "/var/run/" + name + "/" + name + ".pid"}) {
        const long pid = strtol(contentsOf(path).c_str(), nullptr, 10);
        if (pid > 0 && std::filesystem::exists("/proc/" + std::to_string(pid), error))
          running.insert(name);
      }
    }
  }
  // These carry the connection or the system itself.
  static const std::set<std::string> kept = {"ssh",  "sshd", "network",        "networking",
                                             "dbus", "udev", "NetworkManager", "rcS"};
  for (const std::string& name : survey.initScripts) {
    if (running.count(name) && !kept.count(name)) survey.runningServices.push_back(name);
  }
}

}  // namespace

std::vector<MountLine> parseMounts(const std::string& text) {
  std::vector<MountLine> mounts;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    MountLine mount;
    if (!(fields >> mount.device) || mount.device[0] == '#') continue;
    if (!(fields >> mount.mountPoint >> mount.type)) continue;
    fields >> mount.options;
    mount.device = unescaped(mount.device);
    mount.mountPoint = unescaped(mount.mountPoint);
    while (mount.mountPoint.size() > 1 && mount.mountPoint.back() == '/')
      mount.mountPoint.pop_back();
    mounts.push_back(mount);
  }
  return mounts;
}

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
