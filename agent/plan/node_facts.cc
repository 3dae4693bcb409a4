#include "agent/plan/node_facts.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <sys/statvfs.h>
#include <sys/sysinfo.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "agent/framework/ip_pool.h"
#include "agent/plan/survey.h"
#include "agent/system/file_io.h"
#include "agent/system/host_settings.h"
#include "framework/env_manager.h"
#include "framework/errors.h"
#include "framework/qxctl.h"
#include "host/error.h"
#include "host/id_map.h"
#include "host/place.h"

namespace agent {

namespace {

namespace fs = std::filesystem;

const std::string distsDirectory = std::string(containerConfigDir) + "/dists";

std::string contentsOf(const std::string& path) {
  std::string text;
  if (readFile(path, text) != 0) text.clear();
  return text;
}

// The pid of a lock that lives.
std::string lockHolderOf(const std::string& path) {
  const long pid = strtol(contentsOf(path).c_str(), nullptr, 10);
  std::error_code error;
  if (pid <= 0 || !fs::exists("/proc/" + std::to_string(pid), error)) return "";
  return "process " + std::to_string(pid);
}

void findSpace(NodeFacts& facts) {
  // The area does not exist yet.
  fs::path place = facts.privateArea;
  std::error_code error;
  while (!fs::exists(place, error) && place.has_relative_path()) place = place.parent_path();
  struct statvfs figures;
  if (statvfs(place.c_str(), &figures) != 0) return;
  facts.freeBytes =
      static_cast<long long>(figures.f_bavail) * static_cast<long long>(figures.f_frsize);
  if (figures.f_files != 0) facts.freeInodes = static_cast<long long>(figures.f_favail);
}

void findAddresses(long long ctid, NodeFacts& facts) {
  facts.addresses = containerAddresses(ctid);
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return;
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owned(list, freeifaddrs);
  for (const ifaddrs* entry = list; entry; entry = entry->ifa_next) {
    if (!entry->ifa_addr) continue;
    const int family = entry->ifa_addr->sa_family;
    char text[INET6_ADDRSTRLEN];
    const void* bytes = nullptr;
    if (family == AF_INET) {
      bytes = &reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr;
    } else if (family == AF_INET6) {
      bytes = &reinterpret_cast<const sockaddr_in6*>(entry->ifa_addr)->sin6_addr;
    }
    if (bytes && inet_ntop(family, bytes, text, sizeof text)) facts.addresses[text] = "this host";
  }
}

// As the migration looks it up: the version's file, else the name's.
void findDistribution(const QXA::QXADistribution& distribution, NodeFacts& facts) {
  std::error_code error;
  std::vector<std::string> names = {distribution.name};
  if (!distribution.version.empty()) {
    names.insert(names.begin(), distribution.name + "-" + distribution.version);
  }
  for (std::string& name : names) name.erase(0, name.compare(0, 1, ".") == 0 ? 1 : 0);
  for (const std::string& name : names) {
    const std::string path = distsDirectory + "/" + name + ".conf";
    if (name.empty() || !fs::exists(path, error)) continue;
    bool global = true;  // until a section begins
    std::istringstream lines(contentsOf(path));
    for (std::string line; std::getline(lines, line);) {
      line.erase(std::remove_if(line.begin(), line.end(), isspace), line.end());
      if (!line.empty() && line[0] == '[') global = line == "[GLOBAL]";
      const bool isScript = line.compare(0, 12, "POST_MIGRATE") == 0;
      if (!global || !isScript || line.size() < 13 || (line[12] != '=' && line[12] != ':'))
        continue;
      std::string script = line.substr(13);
      script.erase(std::remove(script.begin(), script.end(), '"'), script.end());
      if (!script.empty()) facts.distributionScript = distsDirectory + "/scripts/" + script;
    }
    break;
  }
  facts.distributionScriptExists =
      !facts.distributionScript.empty() && fs::exists(facts.distributionScript, error);
}

// The container's variables over the host's, by the rules of the host's own tools.
void findKind(const ShellVariables& variables, NodeFacts& facts) {
  const auto valueOf = [&](const char* name) {
    const auto found = variables.find(name);
    return found == variables.end() ? "" : found->second;
  };
  const std::string storage = valueOf("STORAGE");
  if (!storage.empty()) facts.storage = storage;
}

}  // namespace

NodeFacts nodeFacts(const QXA::QXAMigrateP2VSerializerParams& params) {
  NodeFacts facts;
  ShellVariables settings;
  if (readHostSettings(settings) != 0) throw std::runtime_error(QXL::getErrorMessage());
  facts.hasAddressPool = !hostSetting(settings, "IP_POOL").empty();
  const auto ctid = static_cast<unsigned>(params.ctid);
  const QXA::QXAEnvConfig& config = *params.options.config;

  qxctl_env_status_t status = {};
  facts.containerExists = qxctl_get_env_status(ctid, &status, QXCTL_STATUS_EXISTS) == 0 &&
                          (status.mask & QXCTL_STATUS_EXISTS) != 0;
  facts.lockHolder =
      lockHolderOf(hostSetting(settings, "LOCKDIR") + "/" + std::to_string(ctid) + ".lck");
  if (config.getVEPrivate(ctid, facts.privateArea) != 0) {
    QXA::QXAEnvConfig defaults;
    defaults.setVEPrivateVar(hostSetting(settings, "VE_PRIVATE"));
    defaults.getVEPrivate(ctid, facts.privateArea);
  }
  std::error_code error;
  facts.configExists =
      fs::exists(std::string(containerConfigDir) + "/" + std::to_string(ctid) + ".conf", error);
  facts.areaExists = fs::exists(facts.privateArea, error);
  facts.keptExists = fs::exists(facts.privateArea + ".migrated", error);
  findSpace(facts);
  ShellVariables variables = settings;
  for (const auto& [name, value] : config.otherVariables) variables[name] = value;
  findKind(variables, facts);
  host::Container container;
  container.id = ctid;
  container.vars.insert(variables.begin(), variables.end());
  container.privateArea = facts.privateArea;
  config.getVERoot(ctid, container.root);
  try {
    host::requireOwnPlaces(container);
  } catch (const host::Error& problem) {
    facts.placeProblem = problem.what();
  }
  const host::IdChoice ids = host::idChoiceOf(container);
  if (ids.map) facts.ids = ids.map->count;
  facts.whyIds = ids.why;
  findAddresses(params.ctid, facts);

  std::optional<QXA::QXADistribution> distribution;
  config.getDistribution(distribution);
  if (distribution) findDistribution(*distribution, facts);
  for (const auto& entry : fs::directory_iterator(distsDirectory, error)) {
    if (entry.path().extension() == ".conf") facts.distributions.push_back(entry.path().stem());
  }
  std::sort(facts.distributions.begin(), facts.distributions.end());

  struct sysinfo machine;
  if (sysinfo(&machine) == 0) {
    facts.memoryBytes = static_cast<long long>(machine.totalram) * machine.mem_unit;
  }
  facts.processors = get_nprocs();
  for (const MountLine& mount : parseMounts(contentsOf("/proc/self/mounts"))) {
    facts.cgroupV1 = facts.cgroupV1 || mount.type == "cgroup";
    facts.cgroupV2 = facts.cgroupV2 || mount.type == "cgroup2";
  }
  return facts;
}

}  // namespace agent
