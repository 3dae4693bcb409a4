#include "agent/framework/services.h"

#include <unistd.h>

#include <cstdlib>
#include <string>

#include "agent/system/last_error.h"
#include "framework/errors.h"
#include "framework/logger.h"
#include "framework/migrate_params.h"
#include "framework/request.h"
#include "framework/runner.h"
#include "host/file.h"
#include "host/product.h"

namespace agent {

namespace {
constexpr int kStartSeconds = 120;

std::string stoppedPath() {
  const std::string folder = host::agentFolder();
  return folder.empty() ? folder : folder + "/stopped-services";
}

}  // namespace

int rememberStopped(const QXL::QXLHaulSerializerBaseParams* params) {
  const auto* p2v = dynamic_cast<const QXA::QXAMigrateP2VSerializerParams*>(params);
  const std::string path = stoppedPath();
  if (!p2v || path.empty() || p2v->options.services.empty()) return 0;
  const std::string boot = host::readFile("/proc/sys/kernel/random/boot_id").value_or("\n");
  std::string names;
  const std::vector<QXL::QXLService>& services = p2v->options.services;
  for (auto service = services.rbegin(); service != services.rend(); ++service) {
    names += service->name + "\n";
  }
  return attempt([&]() { host::replaceFileDurably(path, boot + names, 0600); });
}

void forgetStopped() {
  const std::string path = stoppedPath();
  if (!path.empty()) unlink(path.c_str());
}

void startServices(const QXL::QXLHaulSerializerBaseParams* params) {
  const auto* p2v = dynamic_cast<const QXA::QXAMigrateP2VSerializerParams*>(params);
  if (!p2v) return;
  const auto context = QXL::QXLRequestContextPrototype::getCurrent();
  const std::vector<QXL::QXLService>& services = p2v->options.services;
  for (auto service = services.rbegin(); service != services.rend(); ++service) {
    const std::string script = "/etc/init.d/" + service->name;
    const char* const argv[] = {script.c_str(), "start", nullptr};
    QXL::GenExec runner(16384);
    const int status = runner.execWithOnlyError(argv, 0, kStartSeconds);
    if (status == 0) {
      context->freportProgress("Service %s started again.", service->name.c_str());
      continue;
    }
    context->freportProgress("Service %s did not start again: %s", service->name.c_str(),
                             runner.getOutput(QXL::GenExecError).c_str());
    QXL::logMessage(1, "qxagent", "services", "startServices", "%s start: wait status %d: %s",
                    script.c_str(), status, runner.getOutput(QXL::GenExecError).c_str());
  }
}

}  // namespace agent
