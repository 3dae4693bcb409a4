#ifndef QX_SHARE_ENGINE_CASE_FOLDING_H
#define QX_SHARE_ENGINE_CASE_FOLDING_H

#include <string>
#include <vector>

namespace engine {

/// Whether entries of the directory may be reached by other names than those that they are
/// listed by, as "README" is by "readme" where case is folded: in directories of ext4 and
/// tmpfs with FS_CASEFOLD_FL (ioctl_iflags(2)), and all over an xfs made with version=ci
/// (mkfs.xfs(8)). names: of which some should be there now; where none that has a letter is,
/// it may.
bool mayFoldCase(int directory, const std::vector<std::string>& names);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_CASE_FOLDING_H
