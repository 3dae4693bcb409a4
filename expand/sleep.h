#ifndef QX_EXPAND_SLEEP_H
#define QX_EXPAND_SLEEP_H

#include "expand/export.h"

namespace Expand {

/// Sleeps for the whole time, in seconds, however many signals arrive. Returns
/// at once when `seconds` is not positive.
EXPAND_API void sleep_full(int seconds);

}  // namespace Expand

#endif  // QX_EXPAND_SLEEP_H
