// A controller whose parts a test can see and set.
#ifndef QX_TESTS_CONTROL_TEST_CONTROL_H
#define QX_TESTS_CONTROL_TEST_CONTROL_H

#include <string>
#include <vector>

#include "agent/framework/access.h"
#include "agent/wire/request_context.h"
#include "control/control.h"

// A request's context that is its own progress handler.
class ControlContext : public agent::RequestContext, public QXL::QXLProgressHandlerPrototype {
 public:
  ControlContext()
      : RequestContext([this](const QXL::QXLRequestProgressData& data) { progress(data); }) {}
  void progress(const QXL::QXLRequestProgressData& data) override { lines.push_back(data.text); }
  void error(int code, const std::string& text) override { setLastError(code, text); }
  void stageBegins(const std::string&) override {}
  void stageEnds(const std::string&, int) override {}

  std::vector<std::string> lines;
};

class TestControl : public QXLinMigrateP2VControl {
 public:
  explicit TestControl(const boost::intrusive_ptr<ControlContext>& context,
                       boost::shared_ptr<QXL::QXLRequestTransport> local = nullptr)
      : QXLinMigrateP2VControl(boost::intrusive_ptr<QXL::QXLAccessProviderPrototype>(
            new agent::ControlAccess(context, local))) {}

  using QXLinMigrateP2VControl::accessAgent_;
  using QXLinMigrateP2VControl::channelSettings_;
  using QXLinMigrateP2VControl::connectionInfo_;
  using QXLinMigrateP2VControl::connector_;
  using QXLinMigrateP2VControl::deserializer_;
  using QXLinMigrateP2VControl::serializer_;
};

#endif
