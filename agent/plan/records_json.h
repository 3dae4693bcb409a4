// Measurements and surveys as JSON, for the wire and for programs.
#ifndef QX_AGENT_PLAN_RECORDS_JSON_H
#define QX_AGENT_PLAN_RECORDS_JSON_H

#include <nlohmann/json_fwd.hpp>

namespace agent {

struct ClaimedIdentity;
struct IdentityRequest;
struct MeasureSettings;
struct Measurement;
struct Survey;
struct SurveyRequest;

/// An object with a member for each field.
nlohmann::json toJson(const MeasureSettings& value);
nlohmann::json toJson(const Measurement& value);
nlohmann::json toJson(const SurveyRequest& value);
nlohmann::json toJson(const Survey& value);
nlohmann::json toJson(const IdentityRequest& value);
nlohmann::json toJson(const ClaimedIdentity& value);

/// Fields that `json` lacks get their default. Throws std::exception when `json` is no
/// object or a member is not of its field's type.
void fromJson(const nlohmann::json& json, MeasureSettings& value);
void fromJson(const nlohmann::json& json, Measurement& value);
void fromJson(const nlohmann::json& json, SurveyRequest& value);
void fromJson(const nlohmann::json& json, Survey& value);
void fromJson(const nlohmann::json& json, IdentityRequest& value);
void fromJson(const nlohmann::json& json, ClaimedIdentity& value);

}  // namespace agent

#endif
