#include "agent/programs/migration.h"

#include <chrono>
#include <vector>

#include "agent/framework/access.h"
#include "agent/programs/last_copy.h"
#include "agent/transport/local_transport.h"
#include "agent/wire/message_fields.h"
#include "framework/functionality.h"

namespace agent {

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kLastStage[] = "tuneDstSrv";
constexpr char kSettling[] = "checkContainer";

// The controller's context: what its requests report goes to the view, and the
// stage that failed first is remembered.
class MigrationContext : public RequestContext, public QXL::QXLProgressHandlerPrototype {
 public:
  explicit MigrationContext(MigrationView& view)
      : RequestContext([this](const QXL::QXLRequestProgressData& data) { progress(data); }),
        view_(view) {}

  void progress(const QXL::QXLRequestProgressData& data) override {
    if (data.percent >= 0) view_.percent(data.description, data.percent);
    if (!data.text.empty()) view_.line(data.text);
  }

  void error(int code, const std::string& text) override { setLastError(code, text); }

  void stageBegins(const std::string& stage) override {
    began_ = Clock::now();
    view_.stageBegins(stage);
  }

  void stageEnds(const std::string& stage, int result) override {
    const std::chrono::duration<double> took = Clock::now() - began_;
    view_.stageEnds(stage, result, took.count());
    // The server's end is the last to finish.
    if (stage == kMethodFinish) {
      finished_.push_back(result);
      return;
    }
    lastStage_ = stage;
    if (result != 0 && failedStage_.empty()) failedStage_ = stage;
  }

  bool serverLeft() const { return !finished_.empty() && finished_.back() != 0; }

  // The node's end keeps what has been adapted, whatever becomes of the server's.
  bool isUnconfirmed() const {
    return failedStage_.empty() && (lastStage_ == kLastStage || lastStage_ == kSettling) &&
           finished_.size() == 2 && finished_.front() == 0 && serverLeft();
  }

  // Where it failed.
  std::string place() const {
    if (!failedStage_.empty()) return failedStage_;
    return lastStage_.empty() ? "connect" : "after " + lastStage_;
  }

 private:
  MigrationView& view_;
  Clock::time_point began_;
  std::string lastStage_;
  std::string failedStage_;
  std::vector<int> finished_;
};

}  // namespace

MigrationResult migrate(const QXL::QXLConnectionInfo& source,
                        const boost::shared_ptr<QXA::QXAMigrateP2VSerializerParams>& params,
                        const CopyRules& rules, MigrationView& view,
                        const std::shared_ptr<CancelToken>& cancel) {
  boost::intrusive_ptr<MigrationContext> context(new MigrationContext(view));
  CurrentRequest request;
  request.client = QXL::QXLAccessChecker::getClientContext();
  request.cancel = cancel;
  const CurrentRequestScope scope(request, context);

  boost::shared_ptr<QXL::QXLRequestTransport> local(new LocalTransport());
  boost::intrusive_ptr<QXL::QXLAccessProviderPrototype> access(new ControlAccess(context, local));
  const QXL::QXLHaulControlPtr control =
      QXL::QXLFunctionality<QXL::QXLHaulControlFactory>::m_kit.getMigrateP2VControl(access, "");
  MigrationResult result;
  if (!control) {
    result.stage = "connect";
    result.text = "no plug-in offers migrations";
    return result;
  }
  const boost::shared_ptr<QXL::QXLConnectionInfo> connection(new QXL::QXLConnectionInfo(source));
  LastCopy lastCopy(*control, *context, view, rules);
  if (!rules.report.empty())
    control->setWatch([&](const std::string& stage) { return lastCopy.stageEnded(stage); });
  control->setConclusion([&]() {
    if (rules.place.privateArea.empty()) return 0;
    context->stageBegins(kSettling);
    const std::string problem = settledProblem(rules.place);
    if (!problem.empty()) context->error(-1, problem);
    context->stageEnds(kSettling, problem.empty() ? 0 : -1);
    return problem.empty() ? 0 : -1;
  });
  result.succeeded = control->execute(connection, params) == 0;
  result.leftOut = lastCopy.leftOut();
  if (!result.succeeded) {
    result.serverLeft = context->serverLeft();
    result.unconfirmed = context->isUnconfirmed();
    result.unsettled = context->place() == kSettling;
    result.code = context->getLastErrorCode();
    result.stage = context->place();
    result.text = context->getLastErrorText();
  }
  return result;
}

}  // namespace agent
