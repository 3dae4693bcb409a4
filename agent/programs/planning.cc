#include "agent/programs/planning.h"

#include <stdexcept>

#include "agent/plan/disk_limits.h"
#include "agent/plan/exclusions.h"
#include "agent/plan/measured_config.h"
#include "agent/plan/survey_operator.h"
#include "agent/programs/shown_step.h"
#include "agent/transport/connect.h"
#include "framework/env_manager.h"
#include "framework/errors.h"

namespace agent {

namespace {

class ViewHandler : public QXL::QXLProgressHandlerPrototype {
 public:
  explicit ViewHandler(MigrationView& view) : view_(view) {}
  void progress(const QXL::QXLRequestProgressData& data) override {
    if (data.percent >= 0) view_.percent(data.description, data.percent);
    if (!data.text.empty()) view_.line(data.text);
  }
  // The caller tells it.
  void error(int, const std::string&) override {}
  void stageBegins(const std::string&) override {}
  void stageEnds(const std::string&, int) override {}

 private:
  MigrationView& view_;
};

CurrentRequest requestOf(const std::shared_ptr<CancelToken>& cancel) {
  CurrentRequest request;
  request.client = QXL::QXLAccessChecker::getClientContext();
  request.cancel = cancel;
  return request;
}

}  // namespace

struct Planning::Parts {
  Parts(const QXL::QXLConnectionInfo& connection, MigrationView& toView,
        const std::shared_ptr<CancelToken>& token)
      : source(connection.address),
        view(toView),
        cancel(token),
        handler(new ViewHandler(toView)),
        request(requestOf(token)),
        scope(request,
              boost::intrusive_ptr<QXL::QXLRequestContextPrototype>(new RequestContext())) {
    kept = shown(view, "connect",
                 [&]() { return std::make_unique<KeptConnection>(connection, handler.get()); });
    client = std::make_unique<SurveyClient>(kept->transport(), handler.get(), cancel.get());
  }

  std::string source;
  MigrationView& view;
  std::shared_ptr<CancelToken> cancel;
  boost::intrusive_ptr<ViewHandler> handler;
  // The connection cancels this request when it is lost.
  CurrentRequest request;
  CurrentRequestScope scope;
  std::unique_ptr<KeptConnection> kept;
  std::unique_ptr<SurveyClient> client;  // before the connection goes
};

Planning::Planning(const QXL::QXLConnectionInfo& source, MigrationView& view,
                   const std::shared_ptr<CancelToken>& cancel)
    : parts_(std::make_unique<Parts>(source, view, cancel)) {}

Planning::~Planning() = default;

host::ServerIdentity Planning::identify() {
  return {parts_->client->identify().machineId, parts_->kept->transport().provenKey()};
}

QXL::QXLRequestTransport& Planning::transport() { return parts_->kept->transport(); }

Measurement Planning::measure(const MeasureSettings& settings) {
  return shown(parts_->view, "measure", [&]() {
    Measurement claimed = parts_->client->measure(settings);
    const QXA::QXAEnvConfigBashParser parser((QXL::QXLVocCacheLocal()));
    QXA::QXAEnvConfig config;
    if (parser.parse(claimed.config, config) != 0) {
      throw std::runtime_error("the measurement: " + QXL::getErrorMessage());
    }
    for (const std::string& text : keepMeasurable(config)) claimed.warnings.push_back({-1, text});
    claimed.config = parser.format(config);
    return claimed;
  });
}

PlanFacts Planning::gather(MigrateOptions& options, const MeasureSettings& settings) {
  PlanFacts facts;
  facts.source = parts_->source;
  facts.ctid = options.ctid;
  facts.givenExcludes = options.excludes;
  facts.services = options.services;
  facts.measurement = measure(settings);
  SurveyRequest request;
  request.excludes = exclusionPatterns(facts);
  facts.survey = shown(parts_->view, "survey", [&]() { return parts_->client->survey(request); });

  options.measuredConfig = facts.measurement.config;
  // What cannot be passed on is a reason to stop, which the plan tells.
  const auto made = [&]() {
    MigrateOptions checked = options;
    checked.distributionRequired = false;
    return makeParams(checked);
  };
  facts.node = nodeFacts(*made());
  const QXA::QXAEnvConfigBashParser parser((QXL::QXLVocCacheLocal()));
  QXA::QXAEnvConfig measured;
  if (parser.parse(options.measuredConfig, measured) != 0) {
    throw std::runtime_error("the measurement: " + QXL::getErrorMessage());
  }
  const bool ownFileSystem = facts.node.storage != "directory";
  const auto raised = raiseDiskLimits(measured, copiedFigures(facts.survey), ownFileSystem);
  options.measuredConfig = parser.format(measured);
  const auto params = made();
  const QXA::QXAEnvConfig& config = *params->options.config;
  for (const RaisedLimit& limit : raised) {
    // Whoever gave a limit by an option or a file has decided otherwise.
    if (limitOf(config, limit.name) == limit.limit) facts.notes.push_back(limit.text);
  }
  facts.config = host::parseOwnShellVars(parser.format(config), host::idAsWritten());
  options.excludes = exclusionPatterns(facts);
  return facts;
}

}  // namespace agent
