#include "agent/framework/services.h"

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <regex>
#include <string>
#include <thread>

#include "agent/system/last_error.h"
#include "agent/wire/request_context.h"
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
constexpr std::chrono::seconds kStopTime(60);
constexpr std::chrono::seconds kLookAgain(5);

std::string stoppedPath() {
  const std::string folder = host::agentFolder();
  return folder.empty() ? folder : folder + "/stopped-services";
}

std::string scriptOf(const std::string& service) { return "/etc/init.d/" + service; }

int run(QXL::GenExec& runner, const std::string& service, const char* action) {
  const std::string script = scriptOf(service);
  const char* const argv[] = {script.c_str(), action, nullptr};
  return runner.execWithOnlyError(argv, 0, kStartSeconds);
}

// `done`: what is said of it then.
void start(const std::string& service, const char* done) {
  const auto context = QXL::QXLRequestContextPrototype::getCurrent();
  QXL::GenExec runner(16384);
  const int status = run(runner, service, "start");
  if (status == 0) return context->freportProgress("Service %s %s.", service.c_str(), done);
  const std::string said = runner.getOutput(QXL::GenExecError);
  context->freportProgress("Service %s did not start again: %s", service.c_str(), said.c_str());
  QXL::logMessage(1, "qxagent", "services", "start", "%s start: wait status %d: %s",
                  scriptOf(service).c_str(), status, said.c_str());
}

// As far as its script can tell: many do not know the question, and answer anything.
bool isDown(const std::string& service) {
  static const std::regex kKnown("status[\"' ]*[|)]");
  if (!std::regex_search(host::readFile(scriptOf(service)).value_or(""), kKnown)) return false;
  QXL::GenExec runner(16384);
  const int status = run(runner, service, "status");
  return WIFEXITED(status) && WEXITSTATUS(status) >= 1 && WEXITSTATUS(status) <= 3;
}

// As long as it lives, what the current request runs is not ended by a cancel.
class Uncancelled {
 public:
  Uncancelled()
      : request_(withoutCancel()),
        scope_(request_, QXL::QXLRequestContextPrototype::getCurrent()) {}

 private:
  static CurrentRequest withoutCancel() {
    const CurrentRequest* current = CurrentRequest::get();
    if (!current) return {};
    if (current->cancel) current->cancel->grantPrograms(kStopTime);
    CurrentRequest request = *current;
    request.cancel = nullptr;
    return request;
  }
  const CurrentRequest request_;
  const CurrentRequestScope scope_;
};

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

void letStopScriptsEnd() {
  const CurrentRequest* request = CurrentRequest::get();
  if (request && request->cancel) request->cancel->grantPrograms(kStopTime);
}

void startServices(const QXL::QXLHaulSerializerBaseParams* params) {
  const auto* p2v = dynamic_cast<const QXA::QXAMigrateP2VSerializerParams*>(params);
  if (!p2v || p2v->options.services.empty()) return;
  const Uncancelled uncancelled;
  const std::vector<QXL::QXLService>& services = p2v->options.services;
  for (auto service = services.rbegin(); service != services.rend(); ++service) {
    start(service->name, "started again");
  }
  // One that was only told to stop, by a script that has ended, may have ignored it.
  std::this_thread::sleep_for(kLookAgain);
  for (auto service = services.rbegin(); service != services.rend(); ++service) {
    if (isDown(service->name)) start(service->name, "was down again and started once more");
  }
}

}  // namespace agent
