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

/// The value in double quotes, as parseShellVars and every shell read it back.
std::string shellQuoted(std::string_view value);

/// What is known to a text that is to keep its references to the container's id, because
/// it is read where there is none: with it "$VEID" and "${VEID}" are read as "$VEID".
const ShellVars& idAsWritten();

/// Lines NAME="value" in name order. "$VEID" in a value is written as a reference, so
/// that what was read with idAsWritten() comes back; everything else stands for itself.
std::string formatShellVars(const ShellVars& vars);

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

/// The same, but only what the text itself assigns.
ShellVars parseOwnShellVars(std::string_view text, const ShellVars& known = {});

/// The same for a file; errors start with its path. Nothing when there is no
/// such file; any other trouble in reading it throws Error.
std::optional<ShellVars> readShellVars(const std::string& path, const ShellVars& known = {});
std::optional<ShellVars> readOwnShellVars(const std::string& path, const ShellVars& known = {});

}  // namespace host

#endif
