// Finds where a container is not what its server is.
#ifndef QX_AGENT_VERIFY_COMPARE_LISTS_H
#define QX_AGENT_VERIFY_COMPARE_LISTS_H

#include "agent/verify/comparison.h"
#include "agent/verify/explanations.h"
#include "agent/verify/list_reader.h"

namespace agent {

/// Reads both lists to their ends. The clocks of the lists have been read. Throws
/// std::runtime_error.
TreeComparison compareLists(ListReader& server, ListReader& container, Explanations explanations);

}  // namespace agent

#endif
