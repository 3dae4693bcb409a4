// The operator that every agent serves itself: it looks at its machine for a plan.
#ifndef QX_AGENT_PLAN_SURVEY_OPERATOR_H
#define QX_AGENT_PLAN_SURVEY_OPERATOR_H

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "agent/plan/identity.h"
#include "agent/plan/measurement.h"
#include "agent/plan/survey.h"
#include "agent/system/cancel.h"
#include "agent/transport/operator_client.h"

namespace agent {

inline constexpr const char* kSurveyOperator = "qxagent_survey";
inline constexpr const char* kMethodMeasure = "measure";
inline constexpr const char* kMethodSurvey = "survey";
inline constexpr const char* kMethodIdentify = "identify";

/// Message field of all methods: the request, and in the answer the result, a
/// JSON text.
inline constexpr int kFieldSurvey = 9101;

/// Puts the operator among those of this process.
void registerSurveyOperator();

/// Asks the agent at the end of a transport, in a session of its own. Progress goes to
/// the handler and `cancel` stops it; both may be null. Throws std::runtime_error
/// with the agent's reason, or when the answer is not one.
class SurveyClient {
 public:
  SurveyClient(QXL::QXLRequestTransport& transport, QXL::QXLProgressHandlerPrototype* handler,
               CancelToken* cancel);

  Measurement measure(const MeasureSettings& settings);
  Survey survey(const SurveyRequest& request);
  /// An agent that cannot tell is one whose server has no identity.
  ClaimedIdentity identify();

 private:
  nlohmann::json ask(const std::string& method, const nlohmann::json& request);

  OperatorClient client_;
  CancelToken* cancel_;
};

}  // namespace agent

#endif
