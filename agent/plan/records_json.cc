#include "agent/plan/records_json.h"

#include <nlohmann/json.hpp>

#include "agent/plan/identity.h"
#include "agent/plan/measurement.h"
#include "agent/plan/survey.h"

namespace agent {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(MeasureSettings, duration, interval, procScale,
                                                diskScale)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(MeasuredExclude, path, decided)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(MeasureWarning, code, text)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Measurement, numproc, avnumproc, numtcpsock,
                                                numothersock, numfile, privvmpages, lockedpages,
                                                shmpages, numflock, numiptent, diskspace,
                                                diskinodes, quotaugidlimit, pageSize, distribution,
                                                hostname, addresses, nameservers, searchDomains,
                                                warnings, notes, excludes, config)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SurveyedFileSystem, device, mountPoint, type,
                                                options, copied, mounted, remote, reason, counted,
                                                bytes, files)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SwapFile, path, bytes)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(OwnerLimits, group, id, blockSoft, blockHard,
                                                inodeSoft, inodeHard)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SurveyedQuotas, mountPoint, users, groups,
                                                userBlockGrace, userInodeGrace, groupBlockGrace,
                                                groupInodeGrace, unreported, unlisted, accountsOnly)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Survey, fileSystems, quotas, scanComplete,
                                                largestUid, largestGid, largestUidPath,
                                                largestGidPath, immutableFiles, immutableCount,
                                                swapFiles, lastlogBytes, lastlogAllocated,
                                                nestedStorage, processors, systemdVersion,
                                                initScripts, runningServices)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SurveyRequest, excludes, timeout)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(ClaimedIdentity, machineId)

nlohmann::json toJson(const MeasureSettings& value) { return value; }

nlohmann::json toJson(const Measurement& value) { return value; }

nlohmann::json toJson(const SurveyRequest& value) { return value; }

nlohmann::json toJson(const Survey& value) { return value; }

void fromJson(const nlohmann::json& json, MeasureSettings& value) { json.get_to(value); }

void fromJson(const nlohmann::json& json, Measurement& value) { json.get_to(value); }

void fromJson(const nlohmann::json& json, SurveyRequest& value) { json.get_to(value); }

void fromJson(const nlohmann::json& json, Survey& value) { json.get_to(value); }

nlohmann::json toJson(const IdentityRequest&) { return nlohmann::json::object(); }

void fromJson(const nlohmann::json&, IdentityRequest&) {}

nlohmann::json toJson(const ClaimedIdentity& value) { return value; }

void fromJson(const nlohmann::json& json, ClaimedIdentity& value) { json.get_to(value); }

}  // namespace agent
