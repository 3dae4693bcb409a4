// Which controllers of control groups the host offers, and in which generation.
#ifndef QX_NODE_CGROUPS_H
#define QX_NODE_CGROUPS_H

#include <set>
#include <string>
#include <string_view>

namespace node {

/// A host may have hierarchies of both generations at once; a controller is in
/// at most one of them.
struct CgroupLayout {
  std::set<std::string> v1;  ///< controllers in hierarchies of the first generation
  std::string v2Mount;       ///< where the second generation is mounted; may be empty
  std::set<std::string> v2;  ///< its controllers
};

/// The layout that a mountinfo text shows, without the controllers of the
/// second generation, which the mount itself lists.
CgroupLayout parseCgroupMounts(std::string_view mountinfo);

/// The layout of this process's mount namespace. Throws Error.
CgroupLayout readCgroupLayout();

}  // namespace node

#endif
