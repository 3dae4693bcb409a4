#ifndef QX_EXPAND_CHILD_IMAGE_H
#define QX_EXPAND_CHILD_IMAGE_H

#include "expand/args_list.h"
#include "expand/program_path.h"

namespace Expand {

/// What a child executes. Made before the fork: between fork and exec no memory
/// may be allocated, as another thread may hold the allocator's lock for ever.
struct ChildImage {
  ArgsList argv;
  ArgsList envp;
  ProgramCandidates program;
};

}  // namespace Expand

#endif  // QX_EXPAND_CHILD_IMAGE_H
