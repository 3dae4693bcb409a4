#include "share/engine/file_events.h"

#include <fcntl.h>
#include <linux/fanotify.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>

#include "host/file.h"
#include "share/engine/wire.h"

namespace engine {

namespace {

constexpr unsigned kGroup = FAN_CLASS_NOTIF | FAN_REPORT_DFID_NAME | FAN_REPORT_FID | FAN_CLOEXEC |
                            FAN_NONBLOCK | FAN_UNLIMITED_QUEUE;
// The closing tells of stores into shared memory, and of what older kernels write
// without a word (io_uring).
constexpr std::uint64_t kChanges = FAN_CREATE | FAN_DELETE | FAN_MOVED_FROM | FAN_MOVED_TO |
                                   FAN_MODIFY | FAN_ATTRIB | FAN_CLOSE_WRITE | FAN_ONDIR;
constexpr size_t kFsid = 8;                                       // bytes
constexpr size_t kHandleHeader = 8;                               // bytes: length and type
constexpr size_t kObjectAt = sizeof(fanotify_event_info_header);  // in a record
constexpr size_t kLongestHandle = MAX_HANDLE_SZ;
constexpr unsigned kMinorBits = 20;  // of a device number within the kernel
constexpr unsigned kMinorMask = (1U << kMinorBits) - 1;

template <typename Part>
std::optional<Part> partAt(std::string_view bytes, size_t at) {
  Part part;
  if (at > bytes.size() || bytes.size() - at < sizeof part) return std::nullopt;
  std::memcpy(&part, bytes.data() + at, sizeof part);
  return part;
}

// File system and handle in one record of an event; empty if there is none.
std::string_view objectIn(std::string_view record) {
  const auto length = partAt<std::uint32_t>(record, kObjectAt + kFsid);
  if (!length || *length > kLongestHandle) return {};
  const size_t size = kFsid + kHandleHeader + *length;
  return record.size() - kObjectAt < size ? std::string_view() : record.substr(kObjectAt, size);
}

// The name behind them, up to the byte that ends it. Empty where the directory itself has
// changed, which is called ".", and for what cannot be a name.
std::string_view nameIn(std::string_view record, std::string_view object) {
  const std::string_view rest = record.substr(kObjectAt + object.size());
  const std::string_view name = rest.substr(0, rest.find('\0'));
  const bool isOne = name.size() < rest.size() && name.size() <= NAME_MAX && name != "." &&
                     name != ".." && name.find('/') == std::string_view::npos;
  return isOne ? name : std::string_view();
}

// The first record that tells something: of a directory if there is one.
bool readRecords(std::string_view records, const OnChange& changed) {
  while (const auto header = partAt<fanotify_event_info_header>(records, 0)) {
    if (header->len < sizeof *header || header->len > records.size()) return false;
    const bool named = header->info_type == FAN_EVENT_INFO_TYPE_DFID_NAME;
    const bool directory = named || header->info_type == FAN_EVENT_INFO_TYPE_DFID;
    if (directory || header->info_type == FAN_EVENT_INFO_TYPE_FID) {
      const std::string_view record = records.substr(0, header->len);
      const std::string_view object = objectIn(record);
      if (object.empty()) return false;
      changed((directory ? "d" : "f") + std::string(object),
              named ? nameIn(record, object) : std::string_view());
      return true;
    }
    records.remove_prefix(header->len);
  }
  return false;
}

}  // namespace

ChangedObject ChangedObject::from(std::string_view bytes) {
  const auto length = partAt<std::uint32_t>(bytes, 1 + kFsid);
  if (!length || *length > kLongestHandle || bytes.size() != 1 + kFsid + kHandleHeader + *length)
    throw ProtocolError("a handle of a file is damaged");
  return {bytes[0] == 'd', bytes.substr(1, kFsid), bytes.substr(1 + kFsid)};
}

host::Fd openEvents() {
  return host::Fd(static_cast<int>(
      ::syscall(SYS_fanotify_init, kGroup, static_cast<unsigned>(O_RDONLY | O_CLOEXEC))));
}

bool watchFileSystem(int events, const std::string& path) {
  return ::syscall(SYS_fanotify_mark, events, FAN_MARK_ADD | FAN_MARK_FILESYSTEM, kChanges,
                   AT_FDCWD, path.c_str()) == 0;
}

std::vector<dev_t> watchedFileSystemsIn(std::string_view information) {
  std::vector<dev_t> found;
  while (!information.empty()) {
    const size_t end = information.find('\n');
    const std::string line(information.substr(0, end));
    information.remove_prefix(end == std::string_view::npos ? information.size() : end + 1);
    unsigned number = 0;
    if (std::sscanf(line.c_str(), "fanotify sdev:%x", &number) == 1)
      found.push_back(makedev(number >> kMinorBits, number & kMinorMask));
  }
  return found;
}

std::vector<dev_t> watchedFileSystems(int events) {
  return watchedFileSystemsIn(
      host::readFile("/proc/self/fdinfo/" + std::to_string(events)).value_or(""));
}

bool readEvents(std::string_view bytes, const OnChange& changed) {
  bool complete = true;
  while (const auto event = partAt<fanotify_event_metadata>(bytes, 0)) {
    if (event->event_len < sizeof *event || event->event_len > bytes.size()) return false;
    const bool understood =
        (event->mask & FAN_Q_OVERFLOW) == 0 && event->vers == FANOTIFY_METADATA_VERSION &&
        event->metadata_len <= event->event_len &&
        readRecords(bytes.substr(event->metadata_len, event->event_len - event->metadata_len),
                    changed);
    if (!understood) complete = false;
    bytes.remove_prefix(event->event_len);
  }
  return complete && bytes.empty();
}

}  // namespace engine
