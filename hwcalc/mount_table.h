// The mount tables /etc/fstab and /etc/mtab.
#ifndef QX_HWCALC_MOUNT_TABLE_H
#define QX_HWCALC_MOUNT_TABLE_H

#include <string>
#include <vector>

namespace hwcalc {

struct MountEntry {
  std::string device;
  std::string mountPoint;
  std::string type;
  std::string options;  ///< separated by ","
};

/// The entries of a table's text, in order. Comments, and lines without the three
/// fields up to the type, are skipped; missing options are empty. Octal escapes
/// such as "\040" for a blank are resolved.
std::vector<MountEntry> parseMountTable(const std::string& text);

}  // namespace hwcalc

#endif
