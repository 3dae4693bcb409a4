// Where the product's own rsync program is.
#ifndef QX_MIGRATE_RSYNC_PATH_H
#define QX_MIGRATE_RSYNC_PATH_H

#include <string>

namespace P2V {

/// The program's path under the directory that the environment variable QXA_TMPDIR
/// names; under "/" when the variable is unset or empty. No separator is put in
/// between.
std::string rsyncPath();

}  // namespace P2V

#endif
