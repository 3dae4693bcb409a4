// What --version says.
#ifndef QX_AGENT_PROGRAMS_VERSIONS_H
#define QX_AGENT_PROGRAMS_VERSIONS_H

#include <string>

namespace agent {

/// The versions of this program, of the plug-in that it loads, and of the agent and the
/// rsync that it sends to servers, with where they are: lines for people, without a line end
/// after the last, also where one of them is missing. Loads the plug-in.
std::string versionsText();

}  // namespace agent

#endif
