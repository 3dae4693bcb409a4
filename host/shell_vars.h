// Configuration files in shell-variable format: lines NAME="value".
#ifndef QX_HOST_SHELL_VARS_H
#define QX_HOST_SHELL_VARS_H

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace host {

using ShellVars = std::map<std::string, std::string>;

/// The value of a variable, or `fallback` when it is not set or empty.
std::string valueOf(const ShellVars& vars, const std::string& name,
                    const std::string& fallback = {});

/// The value in single quotes, as parseShellVars and every shell read it back.
std::string shellQuoted(std::string_view value);

/// Reads the text the way a shell reads plain assignments: single and double
/// quotes, backslashes, comments, "export" before a name, and references $NAME
/// and ${NAME} to variables set earlier in the text or in `known`. Later
/// assignments of a name win.
///
/// Nothing is ever executed. What a shell would do more than assign with is
/// refused: command substitution, other expansions, commands, operators,
/// arrays. So is a reference to a variable that is not set: a mistyped name in
/// "/var/lib/qx/private/$NAME" must not quietly become another path.
///
/// Returns `known` with the text's variables added. Throws Error (kBadConfig)
/// that starts with "line N: ".
ShellVars parseShellVars(std::string_view text, const ShellVars& known = {});

/// The same for a file; errors start with its path. Nothing when there is no
/// such file; any other trouble in reading it throws Error.
std::optional<ShellVars> readShellVars(const std::string& path, const ShellVars& known = {});

}  // namespace host

#endif
