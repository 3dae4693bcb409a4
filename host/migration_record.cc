#include "host/migration_record.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "host/container.h"
#include "host/error.h"

namespace host {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kVersion = 1;
constexpr int kMaxDepth = 6;
constexpr size_t kMaxStages = 500;
constexpr size_t kMaxResources = 100;
constexpr size_t kMaxName = 64;  // of what there are many: stages, resources
constexpr uint64_t kMaxNumber = std::numeric_limits<int64_t>::max();

constexpr std::array kStates{"running", "succeeded", "failed", "cancelled", "cleaned"};

[[noreturn]] void refuse(const std::string& what) {
  fail(ExitCode::kBadConfig, "%s", what.c_str());
}

/// Reads the members of one object.
class Members {
 public:
  Members(const Json& json, std::string name) : json_(json), name_(std::move(name)) {
    if (!json.is_object()) refuse("'" + name_ + "' is not an object");
  }

  const Json& at(const char* key) const {
    const auto found = json_.find(key);
    if (found == json_.end()) refuse("'" + nameOf(key) + "' is missing");
    return *found;
  }

  bool has(const char* key) const { return json_.contains(key); }

  Members object(const char* key) const { return Members(at(key), nameOf(key)); }

  std::string text(const char* key) const { return textIn(at(key), nameOf(key)); }

  bool flag(const char* key) const {
    if (!at(key).is_boolean()) refuse("'" + nameOf(key) + "' is neither true nor false");
    return at(key).get<bool>();
  }

  uint64_t number(const char* key, uint64_t max = kMaxNumber) const {
    const Json& value = at(key);
    if (!value.is_number_unsigned() || value.get<uint64_t>() > max) {
      refuse("'" + nameOf(key) + "' is not a number from 0 to " + std::to_string(max));
    }
    return value.get<uint64_t>();
  }

  std::vector<std::string> texts(const char* key, size_t max) const {
    std::vector<std::string> result;
    for (const Json& value : list(key, max)) result.push_back(textIn(value, nameOf(key)));
    return result;
  }

  const Json& list(const char* key, size_t max) const {
    const Json& value = at(key);
    if (!value.is_array()) refuse("'" + nameOf(key) + "' is not a list");
    if (value.size() > max) {
      refuse("'" + nameOf(key) + "' has more than " + std::to_string(max) + " elements");
    }
    return value;
  }

 private:
  std::string nameOf(const char* key) const { return name_.empty() ? key : name_ + "." + key; }

  static std::string textIn(const Json& value, const std::string& name) {
    if (!value.is_string()) refuse("'" + name + "' is not a text");
    const auto& text = value.get_ref<const std::string&>();
    if (text.find('\0') != text.npos) refuse("'" + name + "' has a null byte in it");
    return text;
  }

  const Json& json_;
  std::string name_;
};

/// An absolute plain path, or nothing.
std::string checkedPlace(std::string path, const char* key) {
  if (!path.empty() && (path[0] != '/' || (path + "/").find("/../") != path.npos)) {
    refuse("'places." + std::string(key) + "' is '" + path + "', which is no absolute path");
  }
  return path;
}

std::string placeIn(const Members& members, const char* key) {
  return checkedPlace(members.text(key), key);
}

MigrationStage stageIn(const Json& json) {
  const Members members(json, "stages");
  MigrationStage stage{members.text("name"), members.text("begun"), 0, std::nullopt};
  if (!members.at("seconds").is_number()) refuse("'stages.seconds' is not a number");
  stage.seconds = members.at("seconds").get<double>();
  const Json& result = members.at("result");
  if (!result.is_null() && !result.is_number_integer()) refuse("'stages.result' is not a number");
  if (!result.is_null()) stage.result = result.get<int>();
  return stage;
}

CopyReport leftOutIn(const Members& members) {
  CopyReport report;
  for (const Json& json : members.list("files", kMaxNotCopied)) {
    const Members file(json, "left_out.files");
    report.add(file.text("path"), file.text("reason"));
  }
  report.count = std::max(report.count, members.number("count"));
  return report;
}

ResourceFigures figuresIn(const Json& json) {
  const Members members(json, "resources");
  ResourceFigures figures{members.text("name"), std::nullopt, {}};
  if (!members.at("measured").is_null()) figures.measured = members.number("measured");
  figures.assigned = {members.number("soft"), members.number("hard"), true};
  return figures;
}

// What is written is what can be read again, whatever a server, or a tool, has said.

std::string written(std::string_view whole, size_t longest = kMaxRecordValue) {
  std::string text(whole.substr(0, longest));
  // As every byte that is no character.
  std::replace(text.begin(), text.end(), '\0', '\xff');
  return text;
}

Json allWritten(std::vector<std::string> texts) {
  for (std::string& text : texts) text = written(text);
  return texts;
}

Json place(const std::string& path, const char* key) { return written(checkedPlace(path, key)); }

uint64_t number(uint64_t value) { return std::min(value, kMaxNumber); }

uint64_t number(long long value) { return static_cast<uint64_t>(std::max(0LL, value)); }

Json newest(const std::vector<std::string>& texts) {
  const size_t first = texts.size() > kMaxRecordTexts ? texts.size() - kMaxRecordTexts : 0;
  Json result = Json::array();
  for (size_t i = first; i < texts.size(); ++i) result.push_back(written(texts[i], kMaxRecordText));
  return result;
}

Json stagesOf(const MigrationRecord& record) {
  Json stages = Json::array();
  const size_t all = record.stages.size();
  for (size_t i = all > kMaxStages ? all - kMaxStages : 0; i < all; ++i) {
    const MigrationStage& stage = record.stages[i];
    stages.push_back({{"name", written(stage.name, kMaxName)},
                      {"begun", written(stage.begun, kMaxName)},
                      {"seconds", std::isfinite(stage.seconds) ? stage.seconds : 0},
                      {"result", stage.result ? Json(*stage.result) : Json(nullptr)}});
  }
  return stages;
}

Json leftOutOf(const CopyReport& report) {
  Json files = Json::array();
  for (size_t i = 0; i < std::min(report.files.size(), kMaxNotCopied); ++i) {
    const NotCopied& file = report.files[i];
    files.push_back({{"path", written(file.path)}, {"reason", written(file.reason)}});
  }
  return {{"count", number(report.count)}, {"files", files}};
}

Json resourcesOf(const MigrationRecord& record) {
  Json resources = Json::array();
  for (size_t i = 0; i < std::min(record.resources.size(), kMaxResources); ++i) {
    const ResourceFigures& figures = record.resources[i];
    resources.push_back(
        {{"name", written(figures.name, kMaxName)},
         {"measured", figures.measured ? Json(number(*figures.measured)) : Json(nullptr)},
         {"soft", number(figures.assigned.barrier)},
         {"hard", number(figures.assigned.limit)}});
  }
  return resources;
}

std::string jsonOf(const MigrationRecord& record) {
  const Json json{
      {"version", kVersion},
      {"ctid", record.ctid},
      {"state", stateName(record.state)},
      {"begun", written(record.begun)},
      {"updated", written(record.updated)},
      {"source", written(record.source)},
      {"server",
       {{"machine_id", written(record.server.machineId)},
        {"host_key", written(record.server.hostKey)}}},
      {"parameters",
       {{"hostname", written(record.hostname)},
        {"distribution", written(record.distribution)},
        {"ostemplate", written(record.osTemplate)},
        {"excludes", allWritten(record.excludes)},
        {"services", allWritten(record.services)},
        {"keep_on_failure", record.keepOnFailure}}},
      {"before",
       {{"configuration", record.hadConfiguration},
        {"private_area", record.hadPrivateArea},
        {"kept_inode", number(record.keptInode)},
        {"registration_inode", number(record.registrationInode)},
        {"adapt_marker", record.hadAdaptMarker}}},
      {"places",
       {{"configuration", place(record.configuration, "configuration")},
        {"private_area", place(record.privateArea, "private_area")},
        {"root", place(record.root, "root")},
        {"lock", place(record.lock, "lock")}}},
      {"process",
       {{"boot_id", written(record.process.boot)},
        {"pid", number(static_cast<long long>(record.process.pid))},
        {"start_time", number(uint64_t{record.process.startTime})}}},
      {"stages", stagesOf(record)},
      {"failure", {{"stage", written(record.failedStage)}, {"text", written(record.error)}}},
      {"kept", {{"path", place(record.keptArea, "path")}, {"inode", number(record.keptAreaInode)}}},
      {"figures", {{"bytes", number(record.bytes)}, {"files", number(record.files)}}},
      {"resources", resourcesOf(record)},
      {"left_out", leftOutOf(record.leftOut)},
      {"warnings", newest(record.warnings)},
      {"texts", newest(record.texts)}};
  // Names of files hold any byte, and a cut may lie inside a character.
  return json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

// Leaves out a half of what can be spared first; false when nothing is left of it.
bool shorten(MigrationRecord& record) {
  const auto halve = [](auto& list, bool oldest) {
    const auto begin = list.begin() + (oldest ? 0 : static_cast<ptrdiff_t>(list.size() / 2));
    list.erase(begin, begin + static_cast<ptrdiff_t>((list.size() + 1) / 2));
  };
  if (!record.texts.empty()) {
    halve(record.texts, true);
  } else if (!record.leftOut.files.empty()) {
    halve(record.leftOut.files, false);
  } else if (!record.warnings.empty()) {
    halve(record.warnings, true);
  } else if (!record.excludes.empty()) {
    halve(record.excludes, false);
  } else if (!record.services.empty()) {
    halve(record.services, false);
  } else {
    return false;
  }
  return true;
}

std::string_view fingerprintIn(std::string_view hostKey) {
  return hostKey.substr(0, hostKey.find(' '));
}

std::string_view kindOf(std::string_view hostKey) {
  const size_t blank = hostKey.find(' ');
  return blank == hostKey.npos ? "" : hostKey.substr(blank + 1);
}

}  // namespace

const char* stateName(MigrationState state) { return kStates.at(static_cast<size_t>(state)); }

bool isSameServer(const ServerIdentity& first, const ServerIdentity& second) {
  const auto known = [](const std::string& a, const std::string& b) {
    return !a.empty() && !b.empty();
  };
  const bool machine = known(first.machineId, second.machineId);
  const std::string_view kind = kindOf(first.hostKey), other = kindOf(second.hostKey);
  const bool sameKind = kind.empty() || other.empty() || kind == other;
  const bool key = known(first.hostKey, second.hostKey) && sameKind;
  return (machine || key) && (!machine || first.machineId == second.machineId) &&
         (!key || fingerprintIn(first.hostKey) == fingerprintIn(second.hostKey));
}

bool hasBegun(const MigrationRecord& record, std::string_view stage) {
  return std::any_of(record.stages.begin(), record.stages.end(),
                     [&](const MigrationStage& one) { return one.name == stage; });
}

bool hasSucceeded(const MigrationRecord& record, std::string_view stage) {
  return std::any_of(record.stages.begin(), record.stages.end(), [&](const MigrationStage& one) {
    return one.name == stage && one.result == 0;
  });
}

std::string formatRecord(const MigrationRecord& record) {
  std::string text = jsonOf(record);
  // Bytes that JSON escapes take up to six. What cannot be spared fits all the same.
  for (MigrationRecord less = record; text.size() > kMaxRecordBytes && shorten(less);) {
    text = jsonOf(less);
  }
  return text;
}

MigrationRecord parseRecord(std::string_view text) {
  if (text.size() > kMaxRecordBytes) refuse("it is larger than any journal");
  const auto shallow = [](int depth, Json::parse_event_t, Json&) {
    if (depth > kMaxDepth) refuse("it is nested too deep");
    return true;
  };
  const Json json = Json::parse(text, shallow, false);
  if (json.is_discarded()) refuse("it is not JSON");
  const Members all(json, "");
  if (all.number("version") != kVersion) {
    refuse("its format has version " + std::to_string(all.number("version")) + ", not " +
           std::to_string(kVersion));
  }
  MigrationRecord record;
  record.ctid = static_cast<unsigned>(all.number("ctid", kMaxCtid));
  if (record.ctid == 0) refuse("'ctid' is 0");
  const std::string state = all.text("state");
  const auto* const known = std::find(kStates.begin(), kStates.end(), state);
  if (known == kStates.end()) refuse("'state' is '" + state + "'");
  record.state = static_cast<MigrationState>(known - kStates.begin());
  record.begun = all.text("begun");
  record.updated = all.text("updated");
  record.source = all.text("source");
  const Members server = all.object("server");
  record.server = {server.text("machine_id"), server.text("host_key")};

  const Members parameters = all.object("parameters");
  record.hostname = parameters.text("hostname");
  record.distribution = parameters.text("distribution");
  record.osTemplate = parameters.text("ostemplate");
  record.excludes = parameters.texts("excludes", kMaxRecordBytes);
  record.services = parameters.texts("services", kMaxRecordBytes);
  record.keepOnFailure = parameters.flag("keep_on_failure");

  const Members before = all.object("before");
  record.hadConfiguration = before.flag("configuration");
  record.hadPrivateArea = before.flag("private_area");
  record.keptInode = before.number("kept_inode");
  if (before.has("registration_inode")) {
    record.registrationInode = before.number("registration_inode");
    record.hadAdaptMarker = before.flag("adapt_marker");
  }
  const Members places = all.object("places");
  record.configuration = placeIn(places, "configuration");
  record.privateArea = placeIn(places, "private_area");
  record.root = placeIn(places, "root");
  record.lock = placeIn(places, "lock");

  const Members process = all.object("process");
  record.process.boot = process.text("boot_id");
  record.process.pid = static_cast<pid_t>(process.number("pid", std::numeric_limits<pid_t>::max()));
  record.process.startTime = process.number("start_time");
  for (const Json& stage : all.list("stages", kMaxStages)) record.stages.push_back(stageIn(stage));
  const Members failure = all.object("failure");
  record.failedStage = failure.text("stage");
  record.error = failure.text("text");
  const Members kept = all.object("kept");
  record.keptArea = placeIn(kept, "path");
  record.keptAreaInode = kept.number("inode");
  const Members figures = all.object("figures");
  record.bytes = static_cast<long long>(figures.number("bytes"));
  record.files = static_cast<long long>(figures.number("files"));
  if (all.has("resources")) {
    for (const Json& one : all.list("resources", kMaxResources)) {
      record.resources.push_back(figuresIn(one));
    }
  }
  if (all.has("left_out")) record.leftOut = leftOutIn(all.object("left_out"));
  record.warnings = all.texts("warnings", kMaxRecordTexts);
  record.texts = all.texts("texts", kMaxRecordTexts);
  return record;
}

}  // namespace host
