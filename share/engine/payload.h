#ifndef QX_SHARE_ENGINE_PAYLOAD_H
#define QX_SHARE_ENGINE_PAYLOAD_H

#include "share/engine/wire.h"

namespace engine {

/// For a payload of which all fields were taken: throws ProtocolError if there is more.
inline void expectEnd(const Decoder& from) {
  if (!from.atEnd()) throw ProtocolError("a payload has more fields than there are");
}

}  // namespace engine

#endif  // QX_SHARE_ENGINE_PAYLOAD_H
