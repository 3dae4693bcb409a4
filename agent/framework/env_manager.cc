#include "framework/env_manager.h"

#include "agent/system/last_error.h"
#include "host/lock.h"
#include "host/settings.h"

namespace {

class EnvM : public QXA::QXAEnvM {
 public:
  int getVtSettings(QXA::QXAVtSettings& settings) override {
    return agent::attempt([&]() {
      const host::ShellVars variables = host::hostSettings();
      settings.lockDir = host::settingOf(variables, "LOCKDIR");
      // The default is on a file system that every boot empties.
      host::makeLockDirectory(settings.lockDir);
      settings.defaults["ve_root"] = host::settingOf(variables, "VE_ROOT");
      settings.defaults["ve_private"] = host::settingOf(variables, "VE_PRIVATE");
    });
  }
};

}  // namespace

namespace QXA {

boost::shared_ptr<QXAEnvM> QXALibFunctionality::getQXAEnvMLocal() {
  return boost::shared_ptr<QXAEnvM>(new EnvM());
}

}  // namespace QXA
