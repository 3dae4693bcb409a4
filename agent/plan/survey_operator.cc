#include "agent/plan/survey_operator.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "agent/framework/access.h"
#include "agent/plan/records_json.h"
#include "agent/wire/bounded_json.h"
#include "agent/wire/message.h"
#include "agent/wire/message_fields.h"
#include "agent/wire/operator_registry.h"
#include "agent/wire/request_context.h"
#include "framework/errors.h"

namespace agent {

namespace {

using Iterator = boost::intrusive_ptr<QXL::QXLMessageIterator>;

// Names of files may hold any byte; JSON has characters.
std::string toText(const nlohmann::json& value) {
  return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

class SurveyOperator : public QXL::QXLOperatorFunctionalPrototype {
 public:
  SurveyOperator() {
    const auto add = [this](const char* name,
                            void (SurveyOperator::*handler)(const Iterator&, const Iterator&)) {
      methods_[name] = {static_cast<QXLOpHandler>(handler), 0, 0};
    };
    add(kMethodCreate, &SurveyOperator::nothing);
    add(kMethodFinish, &SurveyOperator::nothing);
    add(kMethodMeasure, &SurveyOperator::measure);
    add(kMethodSurvey, &SurveyOperator::survey);
    add(kMethodIdentify, &SurveyOperator::identify);
  }

 private:
  // There is no worker to make or to end.
  void nothing(const Iterator&, const Iterator&) {}

  void measure(const Iterator& in, const Iterator& out) {
    serve<MeasureSettings>(in, out, measureHere);
  }
  void survey(const Iterator& in, const Iterator& out) {
    serve<SurveyRequest>(in, out, surveyHere);
  }
  void identify(const Iterator& in, const Iterator& out) {
    serve<IdentityRequest>(in, out, [](const IdentityRequest&) { return identityHere(); });
  }

  template <class Request, class Function>
  void serve(const Iterator& in, const Iterator& out, Function function) {
    if (!mayMigrate(out)) return;
    Request request;
    try {
      std::string text;
      if (in->getValueBase64(text, kFieldSurvey) != 0)
        throw std::runtime_error("the request has no settings");
      fromJson(parseBounded(text), request);
    } catch (const std::exception& problem) {
      return QXL::addError(out, QXL::QXLErrors, 400, problem.what());
    }
    const CurrentRequest* current = CurrentRequest::get();
    try {
      const nlohmann::json answer = toJson(function(request));
      if (current && current->cancel && current->cancel->isCancelled()) {
        return QXL::addError(out, QXL::QXLErrors, current->cancel->code(),
                             current->cancel->argument());
      }
      out->putValueBase64(toText(answer), kFieldSurvey);
    } catch (const std::exception& problem) {
      out->putError(-1, problem.what());
    }
  }
};

}  // namespace

void registerSurveyOperator() {
  OperatorRegistry::instance().add(
      QXL::newOperatorFactory<SurveyOperator, 10, 20, 4, true>(kSurveyOperator, "", 0));
}

SurveyClient::SurveyClient(QXL::QXLRequestTransport& transport,
                           QXL::QXLProgressHandlerPrototype* handler, CancelToken* cancel)
    : client_(transport, kSurveyOperator, handler, cancel), cancel_(cancel) {}

Measurement SurveyClient::measure(const MeasureSettings& settings) {
  Measurement measurement;
  fromJson(ask(kMethodMeasure, toJson(settings)), measurement);
  return measurement;
}

Survey SurveyClient::survey(const SurveyRequest& request) {
  Survey survey;
  fromJson(ask(kMethodSurvey, toJson(request)), survey);
  return survey;
}

ClaimedIdentity SurveyClient::identify() {
  try {
    ClaimedIdentity claimed;
    fromJson(ask(kMethodIdentify, toJson(IdentityRequest())), claimed);
    claimed.machineId = parseMachineId(claimed.machineId);
    return claimed;
  } catch (const std::exception&) {
    if (cancel_ && cancel_->isCancelled()) throw;
    return {};
  }
}

nlohmann::json SurveyClient::ask(const std::string& method, const nlohmann::json& request) {
  Message asked;
  asked.putValueBase64(toText(request), kFieldSurvey);
  std::string answer;
  client_.ask(method, asked)->getValueBase64(answer, kFieldSurvey);
  // Lists of mounts, files and services; not more than any server has.
  constexpr JsonLimits kLimits{8, 200000};
  try {
    return parseBounded(answer, kLimits);
  } catch (const std::runtime_error& problem) {
    throw std::runtime_error("the server's answer to '" + method +
                             "' is not acceptable: " + problem.what());
  }
}

}  // namespace agent
