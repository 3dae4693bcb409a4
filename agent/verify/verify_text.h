// What a comparison found, for people and for programs.
#ifndef QX_AGENT_VERIFY_VERIFY_TEXT_H
#define QX_AGENT_VERIFY_VERIFY_TEXT_H

#include <string>

#include "agent/verify/comparison.h"

namespace agent {

/// Unexpected differences one by one, the others by their reasons; with `all` also one
/// by one.
std::string comparisonText(const TreeComparison& comparison, bool all);

/// One object: "entries", "files", "bytes", "unexpected", "untold" (numbers) and
/// "differences", a list of objects of "path", "aspect", "text" and, where the
/// difference is as it should be, "reason".
std::string comparisonJson(const TreeComparison& comparison);

}  // namespace agent

#endif
