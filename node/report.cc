#include "node/report.h"

#include <cstring>
#include <nlohmann/json.hpp>

#include "host/id_map.h"
#include "host/mounts.h"
#include "host/state.h"
#include "host/text.h"

namespace node {
namespace {

using Json = nlohmann::ordered_json;

/// What is worth showing of a configuration.
constexpr std::array<std::pair<const char*, const char*>, 4> kShownVariables{
    {{"HOSTNAME", "hostname"},
     {"IP_ADDRESS", "addresses"},
     {"DISTRIBUTION", "distribution"},
     {"OSTEMPLATE", "ostemplate"}}};

Json toJson(const StatusReport& report) {
  Json json{{"ctid", report.container.id},
            {"exists", report.exists},
            {"mounted", report.mounted},
            {"running", report.running},
            {"registered", report.registered.has_value()}};
  if (report.registered) {
    json["registered_at"] = report.registered->time;
    json["registered_from"] = report.registered->source;
  }
  json["root"] = report.container.root;
  json["private"] = report.container.privateArea;
  json["storage"] = storageName(report.storage);
  if (report.imageBytes) json["image_bytes"] = *report.imageBytes;
  json["unprivileged"] = report.unprivileged;
  json["unprivileged_because"] = report.whyIds;
  for (const auto& [variable, key] : kShownVariables) {
    const std::string value = report.container.var(variable);
    if (!value.empty()) json[key] = value;
  }
  json["limits"] = Json::object();
  for (const Limit& limit : report.resources.limits) {
    json["limits"][limit.key] = limit.value;
  }
  json["not_enforced"] = report.resources.unenforced;
  return json;
}

/// Files hold any bytes, JSON holds UTF-8: other bytes are replaced.
std::string dump(const Json& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace

HostState readHostState() { return {mountPoints(), readCgroupLayout()}; }

StatusReport reportOn(const Container& container, const HostState& host) {
  StatusReport report;
  report.container = container;
  report.exists = container.configured && hasPrivateArea(container);
  report.mounted = countMountsAt(host.mountPoints, container.root) > 0;
  report.running = runningInit(container.id).has_value();
  report.registered = registration(container);
  report.storage = storageOf(container.privateArea);
  report.imageBytes = imageSize(container.privateArea);
  IdChoice ids = idChoiceOf(container);
  report.unprivileged = ids.map.has_value();
  report.whyIds = std::move(ids.why);
  report.resources = planResources(container, host.cgroups);
  // An image cannot hold more than it is large.
  if (report.imageBytes) std::erase(report.resources.unenforced, "DISKSPACE");
  return report;
}

std::string statusText(const StatusReport& report) {
  std::string text = textf(
      "container %u: %s, %s, %s, %s\n", report.container.id,
      report.exists ? "exists" : "does not exist", report.mounted ? "mounted" : "not mounted",
      report.running ? "running" : "stopped", report.registered ? "registered" : "not registered");
  if (report.registered) {
    text += textf("  registered    %s from %s\n", report.registered->time.c_str(),
                  report.registered->source.c_str());
  }
  text += textf("  root          %s\n  private area  %s\n", report.container.root.c_str(),
                report.container.privateArea.c_str());
  if (report.imageBytes) {
    text += textf("  storage       ext4 image of %llu MiB\n",
                  static_cast<unsigned long long>(*report.imageBytes >> 20));
  } else if (report.storage != Storage::kDirectory) {
    text += textf("  storage       %s\n", storageName(report.storage));
  }
  if (report.unprivileged) {
    text += "  unprivileged  yes\n";
  } else {
    text += textf("  unprivileged  no: its root can become root of this host (%s)\n",
                  report.whyIds.c_str());
  }
  for (const auto& [variable, key] : kShownVariables) {
    const std::string value = report.container.var(variable);
    if (!value.empty()) text += textf("  %-13s %s\n", key, value.c_str());
  }
  const char* title = "limits";
  for (const Limit& limit : report.resources.limits) {
    text += textf("  %-13s %s: %s = %s\n", title, limit.record.c_str(),
                  limit.key.substr(strlen("lxc.")).c_str(), limit.value.c_str());
    title = "";
  }
  if (!report.resources.unenforced.empty()) {
    std::string line = "  not enforced ";
    for (const std::string& record : report.resources.unenforced) {
      constexpr size_t kWidth = 79;
      if (line.size() + 1 + record.size() > kWidth) {
        text += line + "\n";
        line = "               ";
      }
      line += " " + record;
    }
    text += line + "\n";
  }
  return text;
}

std::string statusJson(const StatusReport& report) { return dump(toJson(report)); }

std::string listText(const std::vector<StatusReport>& reports) {
  std::string text = textf("%10s  %-8s  %-10s  %-20s  %s\n", "CTID", "STATE", "REGISTERED",
                           "ADDRESSES", "HOSTNAME");
  for (const StatusReport& report : reports) {
    const char* state = report.running   ? "running"
                        : report.mounted ? "mounted"
                        : report.exists  ? "stopped"
                                         : "no files";
    std::string line =
        textf("%10u  %-8s  %-10s  %-20s  %s", report.container.id, state,
              report.registered ? "yes" : "no", report.container.var("IP_ADDRESS").c_str(),
              report.container.var("HOSTNAME").c_str());
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text;
}

std::string listJson(const std::vector<StatusReport>& reports) {
  Json json = Json::array();
  for (const StatusReport& report : reports) json.push_back(toJson(report));
  return dump(json);
}

}  // namespace node
