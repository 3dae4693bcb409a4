#include "agent/services.h"

#include "framework/logger.h"
#include "framework/migrate_params.h"
#include "framework/request.h"
#include "framework/runner.h"

namespace agent {

namespace {
constexpr int startSeconds = 120;
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
    const int status = runner.execWithOnlyError(argv, 0, startSeconds);
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
