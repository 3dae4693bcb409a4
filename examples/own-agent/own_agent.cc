// Asks this machine, as a server that is to be migrated: own-agent [SERVICE...]
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "frame/init.h"
#include "message.h"

namespace {

using Factory = boost::intrusive_ptr<QXL::QXLOpFactory>;

/// The field of an answer that has the disk quotas, as docs/wire-format.md lists it.
constexpr int kQuotaField = 1811;

/// The plug-in, as long as this lives: whatever it made has to go before.
class Plugin {
 public:
  Plugin() {
    // Where its programs are looked for, rsync above all.
    setenv("QXA_TMPDIR", PLUGIN_ROOT, 0);
    // This program has not all of the framework: what is missing matters when it is called.
    handle_ = dlopen(PLUGIN, RTLD_LAZY | RTLD_LOCAL);
    if (!handle_) throw std::runtime_error(dlerror());
    if (entry("initLibrary") != 0) throw std::runtime_error("initLibrary failed");
  }
  ~Plugin() {
    entry("finiLibrary");
    dlclose(handle_);
  }
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  Factory factory(const char* name) const { return *static_cast<Factory*>(symbol(name)); }

 private:
  int entry(const char* name) const { return reinterpret_cast<int (*)()>(symbol(name))(); }
  void* symbol(const char* name) const {
    void* address = dlsym(handle_, name);
    if (!address) throw std::runtime_error(dlerror());
    return address;
  }

  void* handle_;
};

/// Has one request served. The operator fills the answer, by way of its worker.
bool ask(QXL::QXLOperatorPrototype& op, const char* method,
         const boost::intrusive_ptr<Message>& request) {
  currentAnswer.reset(new Message);
  op.process(method, request, currentAnswer);
  if (currentAnswer->code == 0) {
    printf("%s: done\n", method);
  } else {
    printf("%s: error %d, '%s'\n", method, currentAnswer->code, currentAnswer->text.c_str());
  }
  return currentAnswer->code == 0;
}

int run(int argc, char** argv) {
  const Plugin plugin;
  const Factory factory = plugin.factory("factoryQXLinMigrateP2VSerializeOperator");
  printf("the operator is %s\n", factory->getName().c_str());
  const auto op = factory->newOperator();

  const boost::intrusive_ptr<Message> request(new Message);
  for (int i = 1; i < argc; ++i) request->record.options.services.push_back({argv[i]});
  const bool ready = ask(*op, "create", request) && ask(*op, "init", request);
  std::string quotas;
  const bool answered = ready && ask(*op, "dumpQuota", request) &&
                        currentAnswer->getValueBase64(quotas, kQuotaField) == 0;
  if (answered) printf("the disk quotas are %zu bytes of text\n", quotas.size());
  ask(*op, "finish", request);
  return answered ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) try {
  return run(argc, argv);
} catch (const std::exception& problem) {
  fprintf(stderr, "own-agent: %s\n", problem.what());
  return 1;
}
