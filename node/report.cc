#include "node/report.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

#include "host/error.h"
#include "host/file.h"
#include "host/host_security.h"
#include "host/id_map.h"
#include "host/interfaces.h"
#include "host/migration_journal.h"
#include "host/mounts.h"
#include "host/netlink.h"
#include "host/settings.h"
#include "host/state.h"
#include "host/text.h"
#include "node/limits.h"

namespace node {
namespace {

using Json = nlohmann::ordered_json;

/// What is worth showing of a configuration.
constexpr std::array<std::pair<const char*, const char*>, 4> kShownVariables{
    {{"HOSTNAME", "hostname"},
     {"IP_ADDRESS", "addresses"},
     {"DISTRIBUTION", "distribution"},
     {"OSTEMPLATE", "ostemplate"}}};

std::string shownValue(const StatusReport& report, const char* variable) {
  if (std::string_view(variable) == "IP_ADDRESS") return report.addresses;
  return report.container.var(variable);
}

/// IP_ADDRESS counts only where there is no NETIF, and may still say "auto" there.
std::string addressesOf(const Container& container) {
  std::string addresses;
  try {
    for (const Interface& interface : interfacesOf(container)) {
      for (const std::string& address : interface.addresses) {
        addresses += (addresses.empty() ? "" : " ") + address;
      }
    }
  } catch (const Error&) {
    // What is malformed is told when it is used.
    return container.var("IP_ADDRESS");
  }
  return addresses;
}

/// Those that others reach it by. None while it has not come as far, and where this user
/// may not look.
std::vector<std::string> addressesInside(unsigned id) {
  constexpr size_t kMost = 16;  // a guest may have given itself any number
  std::vector<std::string> addresses;
  const std::optional<pid_t> init = runningInit(id);
  if (!init) return addresses;
  try {
    for (const NetAddress& address : readAddressesOf(*init)) {
      if (address.linkLocal || address.text == "::1" || address.text.starts_with("127.")) continue;
      if (addresses.size() == kMost) return addresses;
      addresses.push_back(textf("%s/%u", address.text.c_str(), address.prefix));
    }
  } catch (const Error&) {
    return {};
  }
  return addresses;
}

void findAddresses(StatusReport& report) {
  const std::string configured = addressesOf(report.container);
  std::vector<std::string> inside = addressesInside(report.container.id);
  report.addresses = inside.empty() ? configured : joined(inside);
  const std::vector<std::string_view> words = splitWords(configured);
  std::vector<std::string> expected(words.begin(), words.end());
  std::sort(inside.begin(), inside.end());
  std::sort(expected.begin(), expected.end());
  if (!inside.empty() && inside != expected) report.configuredAddresses = configured;
}

/// The limits that someone has changed behind the configuration.
void findHeldOtherwise(StatusReport& report, const CgroupLayout& layout) {
  const std::optional<pid_t> init = runningInit(report.container.id);
  if (!init) return;
  for (const Limit& limit : report.resources.limits) {
    const std::optional<std::string> held = heldLimit(layout, report.container.id, *init, limit);
    if (held && !isHeld(limit, *held)) report.heldOtherwise[limit.record] = *held;
  }
}

const char* areaWord(const StatusReport& report) {
  if (!report.missingMount.empty()) return "area not mounted";
  return report.exists ? "exists" : "does not exist";
}

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
  if (!report.interruption.empty()) json["interruption"] = report.interruption;
  json["root"] = report.container.root;
  json["private"] = report.container.privateArea;
  json["storage"] = storageName(report.storage);
  if (report.imageBytes) json["image_bytes"] = *report.imageBytes;
  json["unprivileged"] = report.unprivileged;
  json["unprivileged_because"] = report.whyIds;
  for (const auto& [variable, key] : kShownVariables) {
    const std::string value = shownValue(report, variable);
    if (!value.empty()) json[key] = value;
  }
  if (!report.configuredAddresses.empty()) {
    json["configured_addresses"] = report.configuredAddresses;
  }
  if (!report.missingMount.empty()) json["missing_mount"] = report.missingMount;
  json["limits"] = Json::object();
  for (const Limit& limit : report.resources.limits) {
    json["limits"][limit.key] = limit.value;
  }
  if (!report.heldOtherwise.empty()) json["held_otherwise"] = report.heldOtherwise;
  json["not_enforced"] = report.resources.unenforced;
  return json;
}

/// Files hold any bytes, JSON holds UTF-8: other bytes are replaced.
std::string dump(const Json& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace

HostState readHostState() {
  std::vector<std::string> warnings = hostWarnings(readHostSecurity());
  if (const std::string missing = missingIds(hostSettings()); !missing.empty()) {
    warnings.push_back("new containers will be privileged: " + missing);
  }
  return {mountPoints(), readFile("/etc/fstab").value_or(""), std::move(warnings),
          readCgroupLayout()};
}

StatusReport reportOn(const Container& container, const HostState& host) {
  StatusReport report;
  report.container = container;
  report.exists = container.configured && hasPrivateArea(container);
  report.mounted = countMountsAt(host.mountPoints, container.root) > 0;
  report.running = isRunning(container.id);
  if (!report.exists) {
    report.missingMount = missingMount(host.fstab, host.mountPoints, container.privateArea);
  }
  findAddresses(report);
  report.registered = registration(container);
  report.storage = storageOf(container.privateArea);
  report.imageBytes = imageSize(container.privateArea);
  IdChoice ids = idChoiceOf(container);
  report.unprivileged = ids.map.has_value();
  report.whyIds = std::move(ids.why);
  report.resources = planResources(container, host.cgroups);
  // Without the journals, which are root's, the container is what it is all the same.
  try {
    const auto earlier = geteuid() == 0 ? interruptedMigration(container.id) : std::nullopt;
    if (earlier) report.interruption = interruptionText(earlier->record);
  } catch (const Error& problem) {
    fprintf(stderr, "warning: %s\n", problem.what());
  }
  findHeldOtherwise(report, host.cgroups);
  // An image cannot hold more than it is large, a limited subvolume not more than that.
  if (report.imageBytes || subvolumeLimit(container.privateArea)) {
    std::erase(report.resources.unenforced, "DISKSPACE");
  }
  return report;
}

std::string statusText(const StatusReport& report, const std::vector<std::string>& warnings) {
  std::string text =
      textf("container %u: %s, %s, %s", report.container.id, areaWord(report),
            report.mounted ? "mounted" : "not mounted", report.running ? "running" : "stopped");
  // Nobody knows while the file system with the marker is away.
  if (report.missingMount.empty()) text += report.registered ? ", registered" : ", not registered";
  text += "\n";
  if (!report.missingMount.empty()) {
    text += textf("  not mounted   %s, which /etc/fstab has\n", report.missingMount.c_str());
  }
  if (!report.interruption.empty()) text += "  " + report.interruption + "\n";
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
    const std::string value = shownValue(report, variable);
    if (!value.empty()) text += textf("  %-13s %s\n", key, value.c_str());
  }
  if (!report.configuredAddresses.empty()) {
    text += textf("  configured    %s\n", report.configuredAddresses.c_str());
  }
  const char* title = "limits";
  for (const Limit& limit : report.resources.limits) {
    text += textf("  %-13s %s: %s = %s", title, limit.record.c_str(),
                  limit.key.substr(strlen("lxc.")).c_str(), limit.value.c_str());
    const auto other = report.heldOtherwise.find(limit.record);
    if (other != report.heldOtherwise.end()) {
      text += textf(", but the kernel holds %s", other->second.c_str());
    }
    text += "\n";
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
  for (const std::string& warning : warnings) text += "  host warning  " + warning + "\n";
  return text;
}

std::string statusJson(const StatusReport& report, const std::vector<std::string>& warnings) {
  Json json = toJson(report);
  if (!warnings.empty()) json["host_warnings"] = warnings;
  return dump(json);
}

std::string listText(const std::vector<StatusReport>& reports) {
  std::string text = textf("%10s  %-16s  %-10s  %-20s  %s\n", "CTID", "STATE", "REGISTERED",
                           "ADDRESSES", "HOSTNAME");
  for (const StatusReport& report : reports) {
    const char* state = report.running                ? "running"
                        : report.mounted              ? "mounted"
                        : report.exists               ? "stopped"
                        : report.missingMount.empty() ? "no files"
                                                      : areaWord(report);
    std::string line = textf("%10u  %-16s  %-10s  %-20s  %s", report.container.id, state,
                             !report.missingMount.empty() ? "?"
                             : report.registered          ? "yes"
                                                          : "no",
                             report.addresses.c_str(), report.container.var("HOSTNAME").c_str());
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
