#include "toy_operator.h"

#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "agent/transport/request.h"
#include "agent/wire/channels.h"
#include "agent/wire/message.h"
#include "agent/wire/message_fields.h"
#include "agent/wire/operator_registry.h"
#include "framework/errors.h"
#include "framework/migrate_params.h"
#include "framework/runner.h"

namespace toy {

namespace {

using Iterator = boost::intrusive_ptr<QXL::QXLMessageIterator>;

class Worker : public virtual QXL::QXLHaulSerializerPrototype,
               public QXL::QXLHaulSerializerBaseLocalPrototype {
 public:
  explicit Worker(const boost::intrusive_ptr<QXL::QXLAccessProviderPrototype>& access)
      : QXLHaulSerializerBaseLocalPrototype(access) {}
  int finish() override {
    ++counts().finished;
    return QXLHaulSerializerBaseLocalPrototype::finish();
  }
};

struct TextWriter : QXL::QXLWriterPrototype {
  explicit TextWriter(std::string value) : text(std::move(value)) {}
  int write(QXL::QXLMessageIterator& out) const override { return out.putValueBase64(text, 1811); }
  std::string text;
};

struct NumberWriter : QXL::QXLWriterPrototype {
  explicit NumberWriter(long long value) : number(value) {}
  int write(QXL::QXLMessageIterator& out) const override {
    return out.putValueLongLong(number, 1017);
  }
  long long number;
};

class Operator : public QXL::QXLHaulControlOperatorPrototype {
 public:
  Operator() {
    const auto add = [this](const char* name,
                            void (Operator::*handler)(const Iterator&, const Iterator&)) {
      methods_[name] = {static_cast<QXLOpHandler>(handler), 0, 0};
    };
    add("echo", &Operator::echo);
    add("fail", &Operator::fail);
    add("refuse", &Operator::refuse);
    add("throw", &Operator::throwUp);
    add("sleep", &Operator::sleep);
    add("shell", &Operator::shell);
    add("whoami", &Operator::whoami);
    add("channel", &Operator::channel);
    add("silent", &Operator::silent);
    add("flood", &Operator::flood);
    add("pause", &Operator::pause);
    add("stopServices", &Operator::stopServices);
    methods_[""] = {nullptr, 0, 0};
  }

  boost::shared_ptr<QXL::QXLHaulSerializerBaseParams> newParams() override {
    return boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>(
        new QXA::QXAMigrateP2VSerializerParams());
  }
  int deserializeParams(const Iterator&,
                        const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>&) override {
    return 0;
  }
  int serializeParams(const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>&,
                      const Iterator&) override {
    return 0;
  }
  boost::intrusive_ptr<QXL::QXLHaulSerializerBasePrototype> createSerializer() override {
    return boost::intrusive_ptr<QXL::QXLHaulSerializerBasePrototype>(
        new Worker(QXL::QXLOpSyncAccessPrototype::createInstance("", this)));
  }
  void process(const std::string& method, const Iterator& in, const Iterator& out) override {
    long long succeeded = 0;
    if (method == agent::kMethodFinish) in->getValueLongLong(succeeded, agent::kFieldSucceeded);
    if (succeeded) ++counts().finishedWell;
    QXLHaulControlOperatorPrototype::process(method, in, out);
  }

 private:
  Worker& worker() { return dynamic_cast<Worker&>(*getHeldSerializer()); }

  void echo(const Iterator& in, const Iterator&) {
    std::string text;
    in->getValueBase64(text, 1811);
    worker().beginCommand();
    worker().getContextLocal()->freportProgress("echoing %d bytes", static_cast<int>(text.size()));
    worker().endCommandWithAnswer(TextWriter(text));
  }
  void fail(const Iterator&, const Iterator&) {
    worker().beginCommand();
    worker().getContextLocal()->fsetLastError(-1, "it %s", "failed");
    worker().endCommand({});
  }
  void refuse(const Iterator&, const Iterator&) {
    worker().beginCommand();
    QXL::QXLRequestErrorData error;
    error.code = 414;
    worker().endCommand(error);
  }
  void throwUp(const Iterator&, const Iterator&) { throw std::runtime_error("thrown"); }
  void sleep(const Iterator&, const Iterator&) {
    worker().beginCommand();
    const char* const argv[] = {"/bin/sleep", "60", nullptr};
    QXL::GenExec runner(100);
    ++counts().sleeping;
    worker().getContextLocal()->freportProgress("sleeping");
    if (runner.execWithOnlyError(argv, 0, 80000) != 0) {
      worker().getContextLocal()->fsetLastError(-1, "the sleep was cut");
    }
    worker().endCommand({});
  }
  void shell(const Iterator&, const Iterator&) {
    worker().beginCommand();
    const pid_t child = fork();
    if (child == 0) {
      execl("/bin/sh", "sh", "-c", "sleep 60; true", static_cast<char*>(nullptr));
      _exit(127);
    }
    ++counts().sleeping;
    worker().getContextLocal()->freportProgress("sleeping");
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0) worker().getContextLocal()->fsetLastError(-1, "the shell was cut");
    worker().endCommand({});
  }
  void whoami(const Iterator&, const Iterator&) {
    worker().beginCommand();
    worker().endCommandWithAnswer(NumberWriter(QXL::QXLAccessChecker::getClientContext().uid));
  }
  void channel(const Iterator& in, const Iterator& out) {
    const auto end = getPhysHandle(in, out);
    if (!end) return;
    worker().beginCommand();
    char buffer[64];
    const ssize_t count = read(end->getInputFd(), buffer, sizeof buffer);
    if (count < 0 || write(end->getOutputFd(), buffer, static_cast<size_t>(count)) != count) {
      worker().getContextLocal()->fsetLastError(-1, "the channel is broken");
    }
    worker().endCommand({});
  }
  void flood(const Iterator&, const Iterator&) {
    worker().beginCommand();
    worker().endCommandWithAnswer(TextWriter(std::string(40u << 20, 'x')));
  }
  void stopServices(const Iterator&, const Iterator&) {
    worker().beginCommand();
    const char* const argv[] = {"/bin/sh", "-c", "sleep 2; exit 0", nullptr};
    QXL::GenExec first(100), second(100);
    first.execAsync(QXL::GenExecAsync, argv, 80000);
    worker().getContextLocal()->freportProgress("stopping");
    if (first.wait() != 0) {
      worker().getContextLocal()->fsetLastError(-1, "the first was cut");
    } else if (second.execWithOnlyError(argv, 0, 80000) == 0) {
      worker().getContextLocal()->fsetLastError(-1, "the second was begun");
    }
    worker().endCommand({});
  }
  void pause(const Iterator&, const Iterator&) {
    worker().beginCommand();
    ++counts().pausing;
    usleep(100000);
    worker().endCommand({});
  }
  void silent(const Iterator&, const Iterator&) {
    worker().beginCommand();
    worker().getContextLocal()->fsetLastError(-1, "said nothing");
  }
};

}  // namespace

Counts& counts() {
  static Counts all;
  return all;
}

void reset() {
  counts().finished = 0;
  counts().finishedWell = 0;
  counts().sleeping = 0;
  counts().pausing = 0;
}

Registration::Registration() {
  reset();
  agent::OperatorRegistry::instance().add(
      QXL::newOperatorFactory<Operator, 10, 20, 4, true>(operatorName, "", 0));
}

Registration::~Registration() { agent::OperatorRegistry::instance().remove(operatorName); }

Outcome ask(QXL::QXLRequestTransport& transport, const std::string& session,
            const std::string& method, const std::string& text,
            QXL::QXLProgressHandlerPrototype* handler, agent::CancelToken* cancel,
            const std::string& channel) {
  boost::intrusive_ptr<agent::Message> in(new agent::Message());
  in->putValueBase64(text, 1811);
  if (!channel.empty()) in->putValueBase64(channel, agent::kFieldChannel);
  agent::Request request;
  request.session = session;
  request.operatorName = operatorName;
  request.method = method;
  request.body = in->body();
  nlohmann::json body;
  Outcome outcome;
  outcome.code = transport.call(request, body, handler, cancel);
  if (outcome.code != 0) {
    outcome.text = QXL::getErrorMessage();
    return outcome;
  }
  boost::intrusive_ptr<agent::Message> answer(new agent::Message(body));
  if (const auto error = answer->firstError()) {
    outcome.code = error->first;
    outcome.text = error->second;
    return outcome;
  }
  answer->getValueBase64(outcome.text, 1811);
  answer->getValueLongLong(outcome.number, 1017);
  return outcome;
}

std::string open(QXL::QXLRequestTransport& transport) {
  const std::string session = agent::newToken();
  ask(transport, session, agent::kMethodCreate);
  ask(transport, session, agent::kMethodInit);
  return session;
}

}  // namespace toy
