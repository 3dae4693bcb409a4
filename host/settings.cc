#include "host/settings.h"

#include "host/paths.h"

namespace host {

ShellVars hostSettings(const std::string& id) {
  const ShellVars known{{"VEID", id}};
  ShellVars settings = readShellVars(kHostConfig, known).value_or(known);
  settings["VEID"] = id;
  return settings;
}

std::string settingOf(const ShellVars& vars, const std::string& name) {
  static const ShellVars kDefaults{
      {"LOCKDIR", kDefaultLockDir},
      {"VE_ROOT", kDefaultRoot},
      {"VE_PRIVATE", kDefaultPrivate},
  };
  std::string value = valueOf(vars, name);
  const auto found = kDefaults.find(name);
  if (!value.empty() || found == kDefaults.end()) return value;
  return parseShellVars(name + "=" + found->second, vars).at(name);
}

}  // namespace host
