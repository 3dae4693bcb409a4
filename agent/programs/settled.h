// Whether what a migration has made is there for good.
#ifndef QX_AGENT_PROGRAMS_SETTLED_H
#define QX_AGENT_PROGRAMS_SETTLED_H

#include <string>

namespace agent {

/// Where the container of a migration is; empty where nobody is to look.
struct ContainerPlace {
  std::string root;         ///< where it is mounted while files are copied
  std::string privateArea;  ///< where it is kept
};

/// Has the kernel write what was copied so far to the disk, so that little is left to be
/// written while services are down. What goes wrong shows up at the end.
void writeEarly(const ContainerPlace& place);

/// What is missing when the node's end has finished: the container's files are on the disk,
/// and it is registered. The node's end does not tell whether its last commands failed, and
/// the server's end is told of success only when nothing is missing. Empty when all is well.
std::string settledProblem(const ContainerPlace& place);

}  // namespace agent

#endif
