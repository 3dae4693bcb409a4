// What keeps a container whose root is the host's root from the host's kernel.
//
// Its /proc and /sys are the kernel's own. LXC's profile of AppArmor denies what is
// dangerous there by its path, which holds only as long as the files have no other
// path; but a guest's systemd must mount, and see the tree at a second place, to give
// services a view of their own. So the guest may mount anything anywhere, but a second
// /proc or /sys only where systemd builds that view, and nothing there can be written.
#ifndef QX_NODE_CONFINEMENT_H
#define QX_NODE_CONFINEMENT_H

#include <string>
#include <vector>

namespace node {

/// Patterns of AppArmor's, which together have all absolute paths that begin with none
/// of `prefixes`. These begin and end with "/" and hold no special characters.
std::vector<std::string> outside(const std::vector<std::string>& prefixes);

/// Rules of AppArmor's that are added to LXC's generated profile, without nesting.
std::vector<std::string> mountRules();

/// LXC's list of forbidden system calls `common`, with those that mount without
/// AppArmor being asked (Linux before 6.8): programs take mount(2) instead.
std::string withoutMountCalls(const std::string& common);

}  // namespace node

#endif
