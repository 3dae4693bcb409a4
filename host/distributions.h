// The distribution table: for each distribution a file of sections and options that
// names, among others, the script that adapts a copied system.
#ifndef QX_HOST_DISTRIBUTIONS_H
#define QX_HOST_DISTRIBUTIONS_H

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace host {

/// Options by section and name. What stands before the first header is in "GLOBAL".
using Table = std::map<std::pair<std::string, std::string>, std::string>;

/// Reads a file of the table, by the rules that a migration reads it by:
///
///   # a comment has a line of its own
///   [GLOBAL]
///   NAME = value       or NAME: value; the value is the rest of the line
///
/// Names are of letters, digits, "_", "." and "-". A section that appears again goes on,
/// an option that does replaces the earlier value. Throws Error (kBadConfig) that starts
/// with "line N: ".
Table parseTable(std::string_view text);

/// The name and the version that a text such as "debian-12" or "fedora-rawhide" says: the
/// version is what follows the last "-", and empty where that is nothing. Where the table
/// knows the whole text as a name, that comes first.
std::pair<std::string, std::string> splitDistribution(std::string_view text);

/// What the table says of one distribution.
struct Distribution {
  std::string file;    ///< path of its file; empty when the table has none
  std::string script;  ///< path of the script; empty when the file names none
};

/// Looks a distribution up, "NAME-VERSION" or "NAME": the version's file counts, else
/// the name's. Throws Error (kBadConfig) when the file is malformed.
Distribution findDistribution(std::string_view text);

/// The names that have a file, sorted.
std::vector<std::string> knownDistributions();

/// The file that a distribution would have, whether it is there or not.
std::string distributionFile(const std::string& name);

}  // namespace host

#endif
