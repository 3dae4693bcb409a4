// What the administrator of a container host has set, /etc/qx/qx.conf.
#ifndef QX_AGENT_SYSTEM_HOST_SETTINGS_H
#define QX_AGENT_SYSTEM_HOST_SETTINGS_H

#include <string>

#include "agent/system/shell_format.h"

namespace agent {

inline constexpr const char* hostSettingsPath = "/etc/qx/qx.conf";
inline constexpr const char* containerConfigDir = "/etc/sysconfig/qx-scripts";

// The file's variables; a file that does not exist has none. Returns 0, or -1
// with the reason in QXL::getErrorMessage().
int readHostSettings(ShellVariables& variables);

// A variable, or its default: LOCKDIR, VE_ROOT and VE_PRIVATE have one.
std::string hostSetting(const ShellVariables& variables, const std::string& name);

}  // namespace agent

#endif
