// The mount table, /etc/mtab.
#ifndef QX_QUOTA_MTAB_H
#define QX_QUOTA_MTAB_H

#include <string>
#include <vector>

namespace QuotaMgmt {

struct MountEntry {
  std::string device;
  std::string mountPoint;
  std::vector<std::string> options;
};

/// The entries of the table's text, in order. Lines without the four fields up to
/// the options are skipped. Fields are as they stand: a blank in a path is "\040".
std::vector<MountEntry> parseMtab(const std::string& text);

}  // namespace QuotaMgmt

#endif
