#ifndef QX_SHARE_RSYNC_STOCK_H
#define QX_SHARE_RSYNC_STOCK_H

#include <string>
#include <vector>

namespace qxrsync {

/// The stock rsync to run: "rsync.stock" beside this program if there is one,
/// so that a bundle can bring its own, else /usr/bin/rsync. Throws Failure when
/// there is neither.
std::string stockPath();

/// The words that start it: its path, behind a loader of its own with its
/// libraries when both came in a bundle ("lib" at the top of the tree that this
/// program's "usr/local/share/qxlinmigrate" is in). Throws Failure.
std::vector<std::string> stockCommand();

/// Whether the stock rsync to run has a long option of this name, "--" included. Its file
/// says so, as it names all of them; nothing is run for that. Throws Failure as stockPath.
bool stockKnows(const std::string& option);

/// Replaces this process with stock rsync. Returns never; throws Failure.
[[noreturn]] void becomeStock(const std::vector<std::string>& arguments);

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_STOCK_H
