// How the files of a server are brought over.
#ifndef QX_AGENT_PROGRAMS_COPY_OPTIONS_H
#define QX_AGENT_PROGRAMS_COPY_OPTIONS_H

#include <string>

#include "host/copy_pace.h"

namespace CLI {
class App;
}

namespace agent {

struct CopyOptions {
  host::CopyPace pace;
  std::string direct;  ///< "auto" or "off"; empty: auto
};

/// Adds them to a command. They must live as long as `app`.
void describeCopy(CLI::App& app, CopyOptions& options);

/// For every rsync that this process will run, which tells the server's. To be called while
/// there is one thread.
void announceCopy(const CopyOptions& options);

}  // namespace agent

#endif
