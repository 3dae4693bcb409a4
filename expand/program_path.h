#ifndef QX_EXPAND_PROGRAM_PATH_H
#define QX_EXPAND_PROGRAM_PATH_H

#include <list>
#include <string>
#include <vector>

#include "expand/export.h"

namespace Expand {

/// Finds a program along the search path of an environment.
///
/// name  a name that begins with "/" is returned as it is; a name shorter than
///       two characters gives an empty string
/// env   entries "NAME=value"; the first that begins with "PATH=" is the search
///       path. When there is none the name is returned as it is.
///
/// Returns "directory/name" for the first directory that has such an entry, other
/// than a directory, or an empty string when none has. Whether it may be executed
/// is not looked at: trying gives the better message.
EXPAND_API std::string get_full_name(const char* name, const std::list<std::string>& env);

/// The two halves of get_full_name, for a caller that must not allocate memory
/// when it does the looking: where to look, and whether it is there. A name that
/// is not to be searched for gives no directories, and is itself `unsearched`.
struct ProgramCandidates {
  std::string unsearched;
  std::vector<std::string> searched;
  bool search = false;

  /// The first that exists; empty for none. Async-signal-safe. The text belongs
  /// to this object.
  const char* find() const;
};
ProgramCandidates program_candidates(const char* name, const std::list<std::string>& env);

}  // namespace Expand

#endif  // QX_EXPAND_PROGRAM_PATH_H
