#ifndef QX_SHARE_ENGINE_REMOVAL_H
#define QX_SHARE_ENGINE_REMOVAL_H

#include <string>

#include "share/engine/problems.h"
#include "share/engine/rules.h"

namespace engine {

/// Removes an entry of an open directory, and all that is below it, but never what
/// the rules leave out of the copy, nor the directories that hold such things.
/// path is the entry's, for the rules and for messages. True when it is gone; what
/// could not be removed is a problem, what the rules protect is none.
bool removeEntry(int directory, const std::string& name, const std::string& path,
                 const Rules& rules, Problems& problems);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_REMOVAL_H
