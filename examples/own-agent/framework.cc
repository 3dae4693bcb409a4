// As much of framework/ as the server's end of a migration needs on its way to dumpQuota: no
// connections to other agents, no channels, no configuration of containers.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>

#include "framework/errors.h"
#include "framework/functionality.h"
#include "framework/logger.h"
#include "framework/op_factory.h"
#include "framework/runner.h"
#include "message.h"

thread_local boost::intrusive_ptr<Message> currentAnswer;

namespace {

thread_local std::string lastError;
thread_local boost::intrusive_ptr<QXL::QXLRequestContextPrototype> currentContext;

int fail(const std::string& text) {
  lastError = text;
  return -1;
}

std::string formatted(const char* format, va_list arguments) {
  char* text = nullptr;
  if (vasprintf(&text, format, arguments) < 0) return format;
  const std::string result = text;
  free(text);
  return result;
}

/// Remembers the last error, and shows progress to whoever looks on.
class Context : public QXL::QXLRequestContextPrototype {
 public:
  void setLastError(int code, const std::string& text) override {
    code_ = code;
    text_ = text;
  }
  int getLastErrorCode() const override { return code_; }
  std::string getLastErrorText() const override { return text_; }
  void reportProgress(const QXL::QXLRequestProgressData& data) override {
    printf("  %s\n", data.text.c_str());
  }

 private:
  int code_ = 0;
  std::string text_;
};

/// A worker belongs to the request that its operator serves, on the same thread.
class Access : public QXL::QXLOpSyncAccessPrototype {
 public:
  boost::intrusive_ptr<QXL::QXLRequestContextPrototype> getRequestContext() override {
    return QXL::QXLRequestContextPrototype::getCurrent();
  }
  boost::intrusive_ptr<QXL::QXLMessageIterator> getAnswer() override { return currentAnswer; }
  boost::shared_ptr<QXL::QXLRequestTransport> getTransport(const QXL::QXLEID&) override {
    return nullptr;
  }
};

}  // namespace

// --- Messages ---------------------------------------------------------------------

int Message::putValueLongLong(long long value, int id) {
  numbers_[id] = value;
  return 0;
}

int Message::getValueLongLong(long long& value, int id) {
  const auto found = numbers_.find(id);
  if (found == numbers_.end()) return fail("a message has no number " + std::to_string(id));
  value = found->second;
  return 0;
}

int Message::putValueBase64(const std::string& value, int id) {
  strings_[id] = value;
  return 0;
}

int Message::getValueBase64(std::string& value, int id) {
  const auto found = strings_.find(id);
  if (found == strings_.end()) return fail("a message has no text " + std::to_string(id));
  value = found->second;
  return 0;
}

int Message::putError(int number, const std::string& reason) {
  if (code != 0) return 0;
  code = number;
  text = reason;
  return 0;
}

int Message::putWriter(const QXL::QXLWriterPrototype& writer, int) { return writer.write(*this); }
int Message::getReader(QXL::QXLReaderPrototype& reader, int) { return reader.read(*this); }

int QXA::QXAMigrateP2VSerializerParams::Writer::write(QXL::QXLMessageIterator& out) const {
  dynamic_cast<Message&>(out).record = record_;
  return 0;
}

int QXA::QXAMigrateP2VSerializerParams::Reader::read(QXL::QXLMessageIterator& in) {
  const auto& given = dynamic_cast<Message&>(in).record;
  // Services become paths of programs that are run.
  for (const QXL::QXLService& service : given.options.services) {
    if (service.name.empty() || service.name.find('/') != std::string::npos) {
      return fail("'" + service.name + "' is no service's name");
    }
  }
  record_ = given;
  return 0;
}

namespace QXL {

// --- Errors and requests -----------------------------------------------------------

const QXLErrorRow QXLErrors[] = {
    {400, "bad request: %1"},  {404, "there is no method %1"}, {405, "%1 cannot be called"},
    {409, "out of order: %1"}, {414, "access denied"},         {0, "error: %1"},
};

void addError(const boost::intrusive_ptr<QXLMessageIterator>& out, const QXLErrorRow* table,
              int code, const std::string& argument) {
  while (table->code != 0 && table->code != code) ++table;
  std::string text = table->text;
  if (const size_t at = text.find("%1"); at != text.npos) text.replace(at, 2, argument);
  out->putError(code, text);
}

std::string getErrorMessage() { return lastError; }

int fentryExists(const std::string& path, int flags) {
  return faccessat(AT_FDCWD, path.c_str(), F_OK, flags == 1 ? AT_SYMLINK_NOFOLLOW : 0) == 0;
}

boost::intrusive_ptr<QXLRequestContextPrototype> QXLRequestContextPrototype::getCurrent() {
  if (!currentContext) currentContext.reset(new Context);
  return currentContext;
}

void QXLRequestContextPrototype::fsetLastError(int code, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  setLastError(code, formatted(format, arguments));
  va_end(arguments);
}

void QXLRequestContextPrototype::freportProgress(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  reportProgress(QXLRequestProgressData(formatted(format, arguments)));
  va_end(arguments);
}

QXLRequestContextScope::QXLRequestContextScope(
    const boost::intrusive_ptr<QXLRequestContextPrototype>& context)
    : previous_(currentContext) {
  currentContext = context;
}
QXLRequestContextScope::~QXLRequestContextScope() { currentContext = previous_; }

QXLRequest::QXLRequest() = default;
QXLRequest::~QXLRequest() = default;
void QXLRequest::setAccessProvider(const boost::intrusive_ptr<QXLAccessProviderPrototype>& access) {
  access_ = access;
}
boost::intrusive_ptr<QXLRequestContextPrototype> QXLRequest::getContext() const {
  return access_ ? access_->getRequestContext() : QXLRequestContextPrototype::getCurrent();
}

QXLRequestLocal::QXLRequestLocal() = default;
QXLRequestLocal::~QXLRequestLocal() = default;

void QXLRequestLocal::beginCommand() {
  open_ = true;
  getContextLocal()->setLastError(0, "");
}

int QXLRequestLocal::endCommand(const QXLRequestErrorData& error) {
  open_ = false;
  const bool own = error.code != 0;
  const int code = own ? error.code : getContextLocal()->getLastErrorCode();
  if (code != 0) {
    currentAnswer->putError(code, own ? error.message : getContextLocal()->getLastErrorText());
  }
  return code;
}

int QXLRequestLocal::endCommandWithAnswer(const QXLWriterPrototype& writer) {
  const int result = endCommand(QXLRequestErrorData());
  return result != 0 ? result : writer.write(*currentAnswer);
}

boost::intrusive_ptr<QXLRequestContextPrototype> QXLRequestLocal::getContextLocal() const {
  return getContext();
}

int QXLRequestLocal::closeCommand() { return open_ ? endCommand(QXLRequestErrorData()) : 0; }

// --- Who may -----------------------------------------------------------------------

const QXLEID QXLEID::EID_INVALID;

boost::intrusive_ptr<QXLOpSyncAccessPrototype> QXLOpSyncAccessPrototype::createInstance(
    const std::string&, QXLOperatorPrototype*) {
  return boost::intrusive_ptr<QXLOpSyncAccessPrototype>(new Access);
}

QXLEID QXLConfiguration::getLocalEID() { return QXLEID("this one"); }

QXLClientContext QXLAccessChecker::getClientContext() {
  return {static_cast<long>(geteuid()), std::to_string(geteuid())};
}

int QXLAccessChecker::accessCheck(const QXLClientContext& client, const QXLEID&, int) {
  return client.uid == static_cast<long>(geteuid()) ? 0 : fail("'" + client.account + "' may not");
}

// --- Operators and workers ---------------------------------------------------------

QXLOpFactory::QXLOpFactory(const std::string& name, int flags) : name_(name), flags_(flags) {}
QXLOpFactory::~QXLOpFactory() = default;

void QXLOperatorFunctionalPrototype::process(const std::string& method,
                                             const boost::intrusive_ptr<QXLMessageIterator>& in,
                                             const boost::intrusive_ptr<QXLMessageIterator>& out) {
  const auto found = methods_.find(method);
  if (found == methods_.end()) return addError(out, QXLErrors, 404, method);
  if (!found->second.handler) return addError(out, QXLErrors, 405, method);
  (this->*found->second.handler)(in, out);
}

QXLHaulControlOperatorPrototype::QXLHaulControlOperatorPrototype() = default;
QXLHaulControlOperatorPrototype::~QXLHaulControlOperatorPrototype() = default;

void QXLHaulControlOperatorPrototype::process(const std::string& method,
                                              const boost::intrusive_ptr<QXLMessageIterator>& in,
                                              const boost::intrusive_ptr<QXLMessageIterator>& out) {
  if (method == "create") {
    serializer_ = createSerializer();
    if (!serializer_) addError(out, QXLErrors, 409, "initLibrary was not called");
    return;
  }
  if (!serializer_) return addError(out, QXLErrors, 409, method + " before create");
  if (method == "init") {
    params_ = newParams();
    if (deserializeParams(in, params_) != 0) {
      return addError(out, QXLErrors, 400, getErrorMessage());
    }
    initialised_ = serializer_->init(boost::shared_ptr<QXLConnectionInfo>(new QXLConnectionInfo),
                                     params_) == 0;
  } else if (method == "finish") {
    serializer_->finish();
  } else if (initialised_) {
    QXLOperatorFunctionalPrototype::process(method, in, out);
  } else {
    return addError(out, QXLErrors, 409, method + " before init");
  }
  // A worker may leave the end of its command to its operator.
  if (auto* local = dynamic_cast<QXLRequestLocal*>(serializer_.get())) local->closeCommand();
  if (method == "finish") {
    serializer_.reset();
    initialised_ = false;
  }
}

QXLHaulSerializerBaseLocalPrototype::QXLHaulSerializerBaseLocalPrototype(
    const boost::intrusive_ptr<QXLAccessProviderPrototype>& access) {
  setAccessProvider(access);
}
QXLHaulSerializerBaseLocalPrototype::~QXLHaulSerializerBaseLocalPrototype() = default;

int QXLHaulSerializerBaseLocalPrototype::init(
    boost::shared_ptr<QXLConnectionInfo> connection,
    boost::shared_ptr<QXLHaulSerializerBaseParams> params) {
  connection_ = connection;
  params_ = params;
  return 0;
}

int QXLHaulSerializerBaseLocalPrototype::finish() {
  connection_.reset();
  params_.reset();
  return 0;
}

void QXLHaulSerializerBaseLocalPrototype::sync(
    const boost::intrusive_ptr<QXLProgressHandlerPrototype>&, const std::string&) {}

QXLHaulControlFactory::QXLHaulControlFactory() = default;
QXLHaulControlFactory::~QXLHaulControlFactory() = default;

QXLHaulSerializerPtr QXLHaulControlFactory::getMigrateP2VSerializerLocal(
    const QXLAccessProviderPtr& access, const std::string& name) const {
  const auto found = localSerializers_.find(name);
  return found == localSerializers_.end() ? nullptr : found->second->create(access);
}

// There is one kit, which the plug-in finds here.
template class QXLFunctionality<QXLHaulControlFactory>;

// --- Programs ----------------------------------------------------------------------

/// Neither output nor a limit of time: dumpQuota asks for none of it.
GenExec::GenExec(int) : state_(nullptr) {}
GenExec::~GenExec() = default;

int GenExec::execWithOnlyError(const char* const* argv, int, int) {
  posix_spawn_file_actions_t silent;
  posix_spawn_file_actions_init(&silent);
  for (int fd = 0; fd <= 2; ++fd) {
    posix_spawn_file_actions_addopen(&silent, fd, "/dev/null", O_RDWR, 0);
  }
  pid_t child = -1;
  const int error =
      posix_spawnp(&child, argv[0], &silent, nullptr, const_cast<char* const*>(argv), environ);
  posix_spawn_file_actions_destroy(&silent);
  int status = 127 << 8;
  if (error == 0) waitpid(child, &status, 0);
  return status;
}

int GenExec::execAsync(int, const char* const*, int) { return fail("no program is left running"); }
int GenExec::wait() { return 127 << 8; }

// --- What the plug-in's other half derives from --------------------------------------

// Its tables have to be there when the plug-in is loaded; none of this is called.
QXLHaulControl::~QXLHaulControl() = default;
QXLHaulSerializerBaseAgentPrototype::~QXLHaulSerializerBaseAgentPrototype() = default;
int QXLHaulSerializerBaseAgentPrototype::init(boost::shared_ptr<QXLConnectionInfo>,
                                              boost::shared_ptr<QXLHaulSerializerBaseParams>) {
  return fail("there is no other agent");
}
int QXLHaulSerializerBaseAgentPrototype::finish() { return fail("there is no other agent"); }

}  // namespace QXL
