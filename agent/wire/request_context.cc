#include "agent/wire/request_context.h"

#include <cstdarg>
#include <cstdio>
#include <vector>

namespace {

thread_local boost::intrusive_ptr<QXL::QXLRequestContextPrototype> currentContext;
thread_local const agent::CurrentRequest* currentRequest = nullptr;

std::string formatText(const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int length = vsnprintf(nullptr, 0, format, again);
  va_end(again);
  if (length < 0) return format;
  std::string text(static_cast<size_t>(length) + 1, '\0');
  vsnprintf(text.data(), text.size(), format, arguments);
  text.pop_back();
  return text;
}

// Hands progress and errors of other requests to a context.
class ContextHandler : public QXL::QXLProgressHandlerPrototype {
 public:
  explicit ContextHandler(boost::intrusive_ptr<QXL::QXLRequestContextPrototype> context)
      : context_(std::move(context)) {}
  void progress(const QXL::QXLRequestProgressData& data) override {
    context_->reportProgress(data);
  }
  void error(int code, const std::string& text) override { context_->setLastError(code, text); }
  void stageBegins(const std::string&) override {}
  void stageEnds(const std::string&, int) override {}

 private:
  boost::intrusive_ptr<QXL::QXLRequestContextPrototype> context_;
};

}  // namespace

namespace agent {

void RequestContext::setLastError(int code, const std::string& text) {
  code_ = code;
  text_ = text;
}

void RequestContext::reportProgress(const QXL::QXLRequestProgressData& data) {
  if (sink_) sink_(data);
}

const CurrentRequest* CurrentRequest::get() { return currentRequest; }

CurrentRequestScope::CurrentRequestScope(
    const CurrentRequest& request,
    const boost::intrusive_ptr<QXL::QXLRequestContextPrototype>& context)
    : contextScope_(context), previous_(currentRequest) {
  currentRequest = &request;
}

CurrentRequestScope::~CurrentRequestScope() { currentRequest = previous_; }

}  // namespace agent

namespace QXL {

boost::intrusive_ptr<QXLRequestContextPrototype> QXLRequestContextPrototype::createInstance() {
  return boost::intrusive_ptr<QXLRequestContextPrototype>(new agent::RequestContext());
}

boost::intrusive_ptr<QXLRequestContextPrototype> QXLRequestContextPrototype::getCurrent() {
  if (!currentContext) currentContext = createInstance();
  return currentContext;
}

void QXLRequestContextPrototype::fsetLastError(int code, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string text = formatText(format, arguments);
  va_end(arguments);
  setLastError(code, text);
}

void QXLRequestContextPrototype::freportProgress(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string text = formatText(format, arguments);
  va_end(arguments);
  reportProgress(QXLRequestProgressData(text));
}

QXLRequestContextScope::QXLRequestContextScope(
    const boost::intrusive_ptr<QXLRequestContextPrototype>& context)
    : previous_(currentContext) {
  currentContext = context;
}

QXLRequestContextScope::~QXLRequestContextScope() { currentContext = previous_; }

QXLRequest::QXLRequest() = default;
QXLRequest::~QXLRequest() = default;

boost::intrusive_ptr<QXLRequestContextPrototype> QXLRequest::getContext() const {
  return access_ ? access_->getRequestContext() : QXLRequestContextPrototype::getCurrent();
}

boost::intrusive_ptr<QXLProgressHandlerPrototype> QXLRequest::getProgressHandler() const {
  boost::intrusive_ptr<QXLRequestContextPrototype> context = getContext();
  // A context that handles progress itself hears of stages, too.
  if (auto* handler = dynamic_cast<QXLProgressHandlerPrototype*>(context.get())) {
    return boost::intrusive_ptr<QXLProgressHandlerPrototype>(handler);
  }
  return boost::intrusive_ptr<QXLProgressHandlerPrototype>(new ContextHandler(context));
}

const boost::intrusive_ptr<QXLAccessProviderPrototype>& QXLRequest::getAccessProvider() const {
  return access_;
}

void QXLRequest::setAccessProvider(const boost::intrusive_ptr<QXLAccessProviderPrototype>& access) {
  access_ = access;
}

QXLRequestLocal::QXLRequestLocal() = default;
QXLRequestLocal::~QXLRequestLocal() = default;

void QXLRequestLocal::beginCommand() {
  open_ = true;
  getContextLocal()->setLastError(0, "");
}

int QXLRequestLocal::endCommand(const QXLRequestErrorData& error) {
  open_ = false;
  int code = error.code;
  std::string text = error.message;
  if (code == 0) {
    code = getContextLocal()->getLastErrorCode();
    text = getContextLocal()->getLastErrorText();
  }
  if (code != 0 && getAccessProvider()) {
    if (auto answer = getAccessProvider()->getAnswer()) answer->putError(code, text);
  }
  return code;
}

int QXLRequestLocal::endCommandWithAnswer(const QXLWriterPrototype& writer) {
  const int result = endCommand(QXLRequestErrorData());
  if (result != 0 || !getAccessProvider()) return result;
  auto answer = getAccessProvider()->getAnswer();
  return answer ? writer.write(*answer) : 0;
}

boost::intrusive_ptr<QXLRequestContextPrototype> QXLRequestLocal::getContextLocal() const {
  return getContext();
}

int QXLRequestLocal::closeCommand() { return open_ ? endCommand(QXLRequestErrorData()) : 0; }

}  // namespace QXL
