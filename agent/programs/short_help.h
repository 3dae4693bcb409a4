// The first help of qxmigrate: one screen.
#ifndef QX_AGENT_PROGRAMS_SHORT_HELP_H
#define QX_AGENT_PROGRAMS_SHORT_HELP_H

#include <string>

namespace CLI {
class App;
}

namespace agent {

/// What `app` is for, its commands with a line each, and its options by their names under
/// their headings, in 80 columns; `examples` stand before them, whole lines.
std::string shortHelp(const CLI::App& app, const std::string& examples);

}  // namespace agent

#endif
