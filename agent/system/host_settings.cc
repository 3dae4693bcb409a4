#include "agent/system/host_settings.h"

#include <cerrno>

#include "agent/system/file_io.h"
#include "agent/system/last_error.h"
#include "framework/env_manager.h"
#include "framework/errors.h"
#include "host/error.h"
#include "host/lock.h"

namespace agent {

int readHostSettings(ShellVariables& variables) {
  variables.clear();
  std::string text;
  if (readFile(hostSettingsPath, text) != 0) return errno == ENOENT ? 0 : -1;
  if (parseShell(text, variables) == 0) return 0;
  return fail(std::string(hostSettingsPath) + ": " + QXL::getErrorMessage());
}

std::string hostSetting(const ShellVariables& variables, const std::string& name) {
  // The same defaults as the node's tools have.
  static const ShellVariables defaults = {
      {"LOCKDIR", "/run/qx/lock"},
      {"VE_ROOT", "/var/lib/qx/root/$VEID"},
      {"VE_PRIVATE", "/var/lib/qx/private/$VEID"},
  };
  for (const ShellVariables* table : {&variables, &defaults}) {
    const auto found = table->find(name);
    if (found != table->end() && !found->second.empty()) return found->second;
  }
  return "";
}

namespace {

class EnvM : public QXA::QXAEnvM {
 public:
  int getVtSettings(QXA::QXAVtSettings& settings) override {
    ShellVariables variables;
    if (readHostSettings(variables) != 0) return -1;
    settings.lockDir = hostSetting(variables, "LOCKDIR");
    // The default is on a file system that every boot empties.
    try {
      host::makeLockDirectory(settings.lockDir);
    } catch (const host::Error& error) {
      return fail(error.what());
    }
    settings.defaults["ve_root"] = hostSetting(variables, "VE_ROOT");
    settings.defaults["ve_private"] = hostSetting(variables, "VE_PRIVATE");
    return 0;
  }
};

}  // namespace
}  // namespace agent

namespace QXA {

boost::shared_ptr<QXAEnvM> QXALibFunctionality::getQXAEnvMLocal() {
  return boost::shared_ptr<QXAEnvM>(new agent::EnvM());
}

}  // namespace QXA
