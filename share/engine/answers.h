#ifndef QX_SHARE_ENGINE_ANSWERS_H
#define QX_SHARE_ENGINE_ANSWERS_H

#include <cstdint>
#include <string_view>

#include "share/engine/work_queue.h"

namespace engine {

// What the receiver says after its greeting. What takes it throws ProtocolError for
// anything else.

/// Of a Want: the directory, and at least one name in it.
Job takeWanted(std::string_view payload);

/// Of a Reached or a Summary.
std::uint64_t takeCount(std::string_view payload);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_ANSWERS_H
