#include "share/engine/listing.h"

#include <dirent.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <limits>

namespace engine {

bool Listing::read(int directory) {
  items_.clear();
  names_.clear();
  if (::lseek(directory, 0, SEEK_SET) < 0) return false;
  alignas(dirent64) std::array<char, 64 << 10> buffer;
  while (true) {
    const long count = ::syscall(SYS_getdents64, directory, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return count == 0;
    for (long at = 0; at < count;) {
      const auto* entry = reinterpret_cast<const dirent64*>(buffer.data() + at);
      at += entry->d_reclen;
      const std::string_view name = entry->d_name;
      if (name == "." || name == "..") continue;
      if (names_.size() > std::numeric_limits<std::uint32_t>::max() - name.size() ||
          name.size() > std::numeric_limits<std::uint8_t>::max()) {
        errno = EOVERFLOW;
        return false;
      }
      items_.push_back({entry->d_ino, static_cast<std::uint32_t>(names_.size()),
                        static_cast<std::uint8_t>(name.size()), entry->d_type});
      names_ += name;
    }
  }
}

void Listing::sortByInode() {
  std::sort(items_.begin(), items_.end(),
            [](const Item& a, const Item& b) { return a.inode < b.inode; });
}

}  // namespace engine
