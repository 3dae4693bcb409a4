#include "migrate/stage.h"

#include <cstdarg>

#include "frame/plugin.h"
#include "framework/access.h"
#include "quota/formatted.h"

namespace P2V {

bool Stage::begin() {
  request_.beginCommand();
  return QXL::QXLAccessChecker::accessCheck(QXL::QXLAccessChecker::getClientContext(),
                                            QXL::QXLConfiguration::getLocalEID(),
                                            kMigrateRight) == 0;
}

int Stage::refuse() { return request_.endCommand({kAccessDenied, ""}); }

int Stage::fail(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  context()->setLastError(-1, QuotaMgmt::formattedList(format, arguments));
  va_end(arguments);
  return end();
}

int Stage::end() { return request_.endCommand({0, ""}); }

int Stage::succeed(const QXL::QXLWriterPrototype& answer) {
  return request_.endCommandWithAnswer(answer);
}

ParamsPtr p2vParams(const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& params) {
  return boost::dynamic_pointer_cast<QXA::QXAMigrateP2VSerializerParams>(params);
}

unsigned int containerId(const QXL::QXLHaulSerializerBaseParams& params) {
  return static_cast<unsigned int>(params.ctid);
}

std::string containerIdText(const QXL::QXLHaulSerializerBaseParams& params) {
  return std::to_string(containerId(params));
}

}  // namespace P2V
