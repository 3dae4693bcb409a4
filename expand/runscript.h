#ifndef QX_EXPAND_RUNSCRIPT_H
#define QX_EXPAND_RUNSCRIPT_H

#include <string>

#include "expand/export.h"

namespace Expand {

/// Runs a shell command line with this process's environment and working directory
/// and waits for its end. Its standard input is closed, not empty: a file that the
/// command opens may get descriptor 0.
///
/// command  for "sh -c"; quote what is in it
/// out,err  receive everything that it wrote, without limit
///
/// Returns its exit status, or -1 when it was killed by a signal. Throws
/// Expand::Error when the shell cannot be started or watched (see CallerExec,
/// which also says what threads share). A missing shell is status 1.
EXPAND_API int runscript(std::string command, std::string& out, std::string& err);

}  // namespace Expand

#endif  // QX_EXPAND_RUNSCRIPT_H
