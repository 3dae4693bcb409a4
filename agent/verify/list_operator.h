// The operator that every agent serves itself: it lists its machine's files for a
// comparison; and the comparison over a connection.
#ifndef QX_AGENT_VERIFY_LIST_OPERATOR_H
#define QX_AGENT_VERIFY_LIST_OPERATOR_H

#include <string>
#include <vector>

#include "agent/system/cancel.h"
#include "agent/transport/transport.h"
#include "agent/verify/comparison.h"
#include "agent/verify/moments.h"

namespace agent {

inline constexpr const char* kListOperator = "qxagent_list";
inline constexpr const char* kMethodList = "list";

/// Message field: the exclusions, a JSON list of texts.
inline constexpr int kFieldExcludes = 9201;

/// Puts the operator among those of this process.
void registerListOperator();

struct CompareRequest {
  std::string tree;                   ///< the container's, on this machine
  std::vector<std::string> excludes;  ///< of the migration
  /// When the last copy began and the container was finished, by this machine's clock.
  Moments moments;
};

/// Compares the files of the server at the end of the connection with a tree of this
/// machine. Both are read at once. Throws std::runtime_error with the reason when one
/// cannot be read to the end, or when `cancel` is cancelled.
TreeComparison compareWithServer(QXL::QXLRequestTransport& transport, const CompareRequest& request,
                                 CancelToken& cancel);

}  // namespace agent

#endif
