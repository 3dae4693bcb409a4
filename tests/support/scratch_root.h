// The mounts and namespaces beneath ScratchHost; tests do not use this directly.
#ifndef QX_TESTS_SUPPORT_SCRATCH_ROOT_H
#define QX_TESTS_SUPPORT_SCRATCH_ROOT_H

#include <string>
#include <vector>

#include "support/temp_tree.h"

namespace test_support {

// In the scratch root: the directory with what this code keeps there, and the
// log of the fake tools.
inline const char SCRATCH_DIR[] = "/.scratch";
inline const char CALL_LOG[] = "/.scratch/calls";

// Moves the calling process, which must be single-threaded, to namespaces of its
// own (mount, pid, IPC, host name, and user when it is not root). Returns in a
// grandchild; the process itself waits for that and ends the way it ended, and
// whatever the grandchild leaves running is killed. Throws Unavailable.
void enterNamespaces();

// Assembles the root on a tmpfs at the empty directory `mountPoint`, adds
// `entries`, and makes it the root and working directory of the process. To be
// called after enterNamespaces. Throws Unavailable for what the machine lacks,
// std::system_error for entries that cannot be made.
void enterScratchRoot(const std::string& mountPoint, const std::vector<TreeEntry>& entries);

}  // namespace test_support

#endif  // QX_TESTS_SUPPORT_SCRATCH_ROOT_H
