#include "share/rsync/file_systems.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <set>

#include "host/fd.h"
#include "host/file.h"
#include "host/mounts.h"

namespace qxrsync {

namespace {

constexpr const char* kAccessList = "system.posix_acl_access";

// user::rw- user:0:r-- group::r-- mask::r-- other::--- in the kernel's form:
// a 32-bit version, then 16-bit tag, 16-bit permissions, 32-bit id each, all
// little-endian. A list of only the three basic entries would not do: it is
// turned into mode bits without being stored.
constexpr std::array<unsigned char, 44> kSampleAccessList = {
    2,    0, 0, 0,                          //
    0x01, 0, 6, 0, 0xff, 0xff, 0xff, 0xff,  //
    0x02, 0, 4, 0, 0,    0,    0,    0,     //
    0x04, 0, 4, 0, 0xff, 0xff, 0xff, 0xff,  //
    0x10, 0, 4, 0, 0xff, 0xff, 0xff, 0xff,  //
    0x20, 0, 0, 0, 0xff, 0xff, 0xff, 0xff};

host::Fd scratchFile(const std::string& directory) {
  host::Fd file(::open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  if (file) return file;
  std::string name = directory + "/.rsync-probe.XXXXXX";
  file = host::Fd(::mkostemp(name.data(), O_CLOEXEC));
  if (file) ::unlink(name.c_str());
  return file;
}

std::string existingDirectory(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  struct stat status {};
  if (path.empty() || ::stat(path.c_str(), &status) == 0) return path;
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

Offer probeByReading(const std::string& directory) {
  Offer offer;
  offer.xattrs = ::listxattr(directory.c_str(), nullptr, 0) >= 0;
  // A file without a list answers ENODATA, a file system without lists EOPNOTSUPP.
  offer.acls = ::getxattr(directory.c_str(), kAccessList, nullptr, 0) >= 0 || errno == ENODATA;
  return offer;
}

Offer probeByWriting(const std::string& directory) {
  Offer offer;
  const std::string place = existingDirectory(directory);
  if (place.empty()) return offer;
  const host::Fd file = scratchFile(place);
  if (!file) return offer;

  const auto holds = [&](const char* name) {
    return ::fsetxattr(file.get(), name, "1", 1, 0) == 0 && ::fremovexattr(file.get(), name) == 0;
  };
  offer.xattrs = holds("user.rsync.probe") || holds("trusted.rsync.probe");
  offer.acls = ::fsetxattr(file.get(), kAccessList, kSampleAccessList.data(),
                           kSampleAccessList.size(), 0) == 0 &&
               ::fremovexattr(file.get(), kAccessList) == 0;
  return offer;
}

bool keepsNanoseconds(const std::string& directory) {
  const std::string place = existingDirectory(directory);
  if (place.empty()) return false;
  const host::Fd file = scratchFile(place);
  const timespec times[2] = {{0, UTIME_OMIT}, {1000000000, 123456789}};
  struct stat status {};
  return file && ::futimens(file.get(), times) == 0 && ::fstat(file.get(), &status) == 0 &&
         status.st_mtim.tv_sec == times[1].tv_sec && status.st_mtim.tv_nsec == times[1].tv_nsec;
}

std::vector<std::string> localMountPoints(std::string_view mountinfo) {
  std::vector<std::string> points;
  std::set<std::string> devicesSeen;
  for (const host::MountInfo& mount : host::parseMountInfo(mountinfo)) {
    const bool wanted = mount.source.starts_with("/dev/") || mount.point == "/";
    if (wanted && devicesSeen.insert(mount.device).second) points.push_back(mount.point);
  }
  return points;
}

std::uint64_t usedBytesBelow(const std::string& directory) {
  if (directory != "/") return 0;
  std::uint64_t sum = 0;
  const std::string mountinfo = host::readFile("/proc/self/mountinfo").value_or("");
  for (const std::string& point : localMountPoints(mountinfo)) {
    struct statvfs status {};
    if (::statvfs(point.c_str(), &status) == 0)
      sum += static_cast<std::uint64_t>(status.f_blocks - status.f_bfree) * status.f_frsize;
  }
  return sum;
}

}  // namespace qxrsync
