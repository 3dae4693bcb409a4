// What the administrator of a container host has set, /etc/qx/qx.conf.
#ifndef QX_HOST_SETTINGS_H
#define QX_HOST_SETTINGS_H

#include <string>

#include "host/shell_vars.h"

namespace host {

/// The file's variables, and VEID, which they may refer to; a file that does not exist
/// has none. Throws Error when it cannot be read or is malformed.
///
/// id  of the container that the settings are asked for; where there is none yet, the
///     references to it stay (see idAsWritten)
ShellVars hostSettings(const std::string& id = "$VEID");

/// A setting, or its default: LOCKDIR, VE_ROOT and VE_PRIVATE have one. `vars` must have
/// VEID.
std::string settingOf(const ShellVars& vars, const std::string& name);

}  // namespace host

#endif
