// The memory part of a sample: reads every process's files.
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "hwcalc/hw_calc.h"
#include "hwcalc/memory_table.h"
#include "hwcalc/proc_files.h"

namespace {

struct DirectoryCloser {
  void operator()(DIR* directory) const { closedir(directory); }
};

class Descriptor {
 public:
  explicit Descriptor(const char* path) : fd_(open(path, O_RDONLY | O_CLOEXEC)) {}
  ~Descriptor() {
    if (fd_ != -1) close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// Reads whole files into one buffer.
class FileReader {
 public:
  // False when the file cannot be read to its end. The text is valid until the
  // next call.
  bool read(const char* path, std::string_view& text) {
    const Descriptor file(path);
    if (file.get() == -1) return false;
    std::size_t size = 0;
    for (;;) {
      if (buffer_.size() - size < kRoom) buffer_.resize(2 * buffer_.size());
      const ssize_t got = ::read(file.get(), buffer_.data() + size, buffer_.size() - size);
      if (got == -1 && errno == EINTR) continue;
      if (got == -1) return false;
      if (got == 0) break;
      size += static_cast<std::size_t>(got);
    }
    text = {buffer_.data(), size};
    return true;
  }

 private:
  static constexpr std::size_t kRoom = 16384;  // bytes; the kernel gives a page at a time
  std::vector<char> buffer_ = std::vector<char>(4 * kRoom);
};

class Scan {
 public:
  // A process that has ended meanwhile is left out.
  void addProcess(std::uint32_t id) {
    char path[64];
    std::string_view text;
    std::snprintf(path, sizeof(path), "/proc/%u/status", id);
    if (!reader_.read(path, text)) return;
    const hwcalc::ProcStatus status = hwcalc::parseStatus(text);
    std::snprintf(path, sizeof(path), "/proc/%u/maps", id);
    if (!reader_.read(path, text)) return;
    hwcalc::parseMaps(text, lines_);
    table_.add(id, status, lines_);
  }

  hwcalc::MemoryTable& table() { return table_; }

 private:
  FileReader reader_;
  std::vector<hwcalc::MapsLine> lines_;
  hwcalc::MemoryTable table_;
};

// Counters only grow; they compare as signed numbers.
void raise(std::uint32_t& counter, std::uint32_t value) {
  if (static_cast<std::int32_t>(value) > static_cast<std::int32_t>(counter)) counter = value;
}

}  // namespace

QXHWCalc::ec_t QXHWCalc::calcMemInfo(PhysParams* params) {
  const std::unique_ptr<DIR, DirectoryCloser> directory(opendir("/proc"));
  if (!directory) return setError(EC_PROC, "Error opening /proc: %s", std::strerror(errno));
  Scan scan;
  while (const dirent* entry = readdir(directory.get())) {
    std::uint32_t id = 0;
    if (hwcalc::isProcessId(entry->d_name, id)) scan.addProcess(id);
  }
  scan.table().link();
  raise(params->privvmpages, scan.table().privatePages());
  raise(params->lockedpages, scan.table().lockedPages());
  return EC_OK;
}
