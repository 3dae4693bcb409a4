// Files of shell variables: NAME="value" lines, as the container host's
// configuration is kept.
#ifndef QX_AGENT_SYSTEM_SHELL_FORMAT_H
#define QX_AGENT_SYSTEM_SHELL_FORMAT_H

#include <map>
#include <string>

namespace agent {

typedef std::map<std::string, std::string> ShellVariables;

// Reads assignments, one a line, the way a shell would, running nothing: values
// may be bare, in single or in double quotes (with \" \\ \$ \` escapes); blank
// lines and lines that begin with "#" are passed over; "export " before a name is
// allowed. "$NAME" stays as it is written, except that an escaped "$" becomes
// "\$", so that the two can be told apart. A later assignment replaces an earlier
// one. Returns 0, or -1 with the line number and the line in
// QXL::getErrorMessage().
int parseShell(const std::string& text, ShellVariables& variables);

// NAME="value" lines in name order, which parseShell reads back unchanged.
std::string formatShell(const ShellVariables& variables);

// One line of formatShell.
std::string shellAssignment(const std::string& name, const std::string& value);

}  // namespace agent

#endif
