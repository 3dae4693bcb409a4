// The paths that no migration copies.
#ifndef QX_MIGRATE_EXCLUDES_H
#define QX_MIGRATE_EXCLUDES_H

#include <string>
#include <vector>

namespace P2V {

/// Adds the patterns that are always excluded; leaves the list without duplicates
/// and in ascending byte order.
void completeExcludes(std::vector<std::string>& list);

}  // namespace P2V

#endif
