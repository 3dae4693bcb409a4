// Reading a process's status and maps files. Hand-written, for there may be
// hundreds of thousands of lines in each sample.
#ifndef QX_HWCALC_PROC_FILES_H
#define QX_HWCALC_PROC_FILES_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace hwcalc {

/// What /proc/PID/status says; 0 or empty for what it does not say, as for the
/// memory of a kernel thread.
struct ProcStatus {
  std::string name;
  std::uint32_t parent = 0;    ///< process id
  std::uint32_t resident = 0;  ///< kilobytes
  std::uint32_t locked = 0;    ///< kilobytes
};

ProcStatus parseStatus(std::string_view text);

/// Bits of MapsLine::flags.
enum MapFlag : std::uint32_t {
  MAP_FLAG_READ = 1,
  MAP_FLAG_WRITE = 2,
  MAP_FLAG_EXECUTE = 4,
  MAP_FLAG_SHARED = 8,
};

/// One line of /proc/PID/maps. The path is not needed.
struct MapsLine {
  std::uint64_t start = 0;   ///< address
  std::uint64_t pages = 0;   ///< of 4096 bytes each, whatever the system's page size is
  std::uint32_t flags = 0;   ///< MapFlag bits
  std::uint64_t offset = 0;  ///< bytes into the object
  std::uint32_t device = 0;  ///< major number in the upper 12 bits; with inode 0 and
  std::uint64_t inode = 0;   ///< device 0 there is no object
};

constexpr std::uint64_t kMapsPageSize = 4096;  ///< bytes

/// The lines in the file's order, that of the addresses. Lines that are not of this
/// form are skipped. `lines` is overwritten, so that its memory can be used again.
void parseMaps(std::string_view text, std::vector<MapsLine>& lines);

/// True and the number when a name in /proc is that of a process.
bool isProcessId(const char* name, std::uint32_t& id);

}  // namespace hwcalc

#endif
