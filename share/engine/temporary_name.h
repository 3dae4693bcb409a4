#ifndef QX_SHARE_ENGINE_TEMPORARY_NAME_H
#define QX_SHARE_ENGINE_TEMPORARY_NAME_H

#include <string>
#include <string_view>

namespace engine {

/// What a new file is called in its directory while it is not whole and something else
/// has its name: no other file has this one.
std::string temporaryName();

/// Whether a name is of that form: then it is of a pass that was killed.
bool isTemporaryName(std::string_view name);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_TEMPORARY_NAME_H
