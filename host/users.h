// Which processes use a container's mounted tree.
#ifndef QX_HOST_USERS_H
#define QX_HOST_USERS_H

#include <string>

namespace host {

/// Names one process whose working directory, root, program or open file lies
/// in the directory `path`, as in "process 123 (bash)"; empty when none is
/// found. For error texts: a process that goes away meanwhile is passed over.
std::string findUser(const std::string& path);

}  // namespace host

#endif
