#include "agent/plan/node_facts.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <sys/statvfs.h>
#include <sys/sysinfo.h>

#include <filesystem>
#include <memory>

#include "framework/qxctl.h"
#include "host/container.h"
#include "host/distributions.h"
#include "host/error.h"
#include "host/file.h"
#include "host/host_security.h"
#include "host/id_map.h"
#include "host/lock.h"
#include "host/migration_journal.h"
#include "host/mounts.h"
#include "host/place.h"
#include "host/reserve.h"
#include "host/settings.h"
#include "host/used_addresses.h"

namespace agent {

namespace {

namespace fs = std::filesystem;

void findSpace(int reservePercent, NodeFacts& facts) {
  // The area does not exist yet.
  fs::path place = facts.privateArea;
  std::error_code error;
  while (!fs::exists(place, error) && place.has_relative_path()) place = place.parent_path();
  struct statvfs figures;
  if (statvfs(place.c_str(), &figures) != 0) return;
  const auto blockSize = static_cast<long long>(figures.f_frsize);
  facts.freeBytes = static_cast<long long>(figures.f_bavail) * blockSize;
  facts.reservedBytes =
      host::reserveOf(static_cast<long long>(figures.f_blocks), reservePercent) * blockSize;
  if (figures.f_files == 0) return;
  facts.freeInodes = static_cast<long long>(figures.f_favail);
  facts.reservedInodes = host::reserveOf(static_cast<long long>(figures.f_files), reservePercent);
}

void findAddresses(unsigned ctid, NodeFacts& facts) {
  host::UsedAddresses used = host::usedAddresses(ctid);
  facts.addresses = std::move(used.holders);
  facts.addressProblems = std::move(used.problems);
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

void findDistribution(const std::string& distribution, NodeFacts& facts) {
  facts.distributions = host::knownDistributions();
  facts.distributionFile = host::distributionFile(host::splitDistribution(distribution).first);
  try {
    const host::Distribution found = host::findDistribution(distribution);
    facts.distributionScript = found.script;
    if (!found.file.empty()) facts.distributionFile = found.file;
  } catch (const host::Error& error) {
    facts.distributionProblem = error.what();
  }
  std::error_code error;
  facts.distributionScriptExists =
      !facts.distributionScript.empty() && fs::exists(facts.distributionScript, error);
}

std::string areaOf(const QXA::QXAMigrateP2VSerializerParams& params,
                   const host::ShellVars& settings) {
  std::string area;
  if (params.options.config->getVEPrivate(static_cast<unsigned>(params.ctid), area) != 0) {
    area = host::settingOf(settings, "VE_PRIVATE");
  }
  return area;
}

// The container as it will be.
host::Container containerOf(const QXA::QXAMigrateP2VSerializerParams& params,
                            const host::ShellVars& settings, const std::string& privateArea) {
  host::Container container;
  container.id = static_cast<unsigned>(params.ctid);
  container.vars = settings;
  const QXA::QXAEnvConfig& config = *params.options.config;
  for (const auto& [name, value] : config.otherVariables) container.vars[name] = value;
  container.privateArea = privateArea;
  if (config.getVERoot(container.id, container.root) != 0) {
    container.root = host::settingOf(settings, "VE_ROOT");
  }
  return container;
}

std::string problemOf(const host::Container& container) {
  try {
    host::requireOwnPlaces(container);
    host::requireMounted(container.privateArea);
  } catch (const host::Error& problem) {
    return problem.what();
  }
  return "";
}

}  // namespace

std::string placeProblem(const QXA::QXAMigrateP2VSerializerParams& params) {
  const host::ShellVars settings = host::hostSettings(std::to_string(params.ctid));
  return problemOf(containerOf(params, settings, areaOf(params, settings)));
}

NodeFacts nodeFacts(const QXA::QXAMigrateP2VSerializerParams& params) {
  NodeFacts facts;
  const auto ctid = static_cast<unsigned>(params.ctid);
  const host::ShellVars settings = host::hostSettings(std::to_string(ctid));
  facts.hasAddressPool = !host::settingOf(settings, "IP_POOL").empty();
  const QXA::QXAEnvConfig& config = *params.options.config;

  qxctl_env_status_t status = {};
  facts.containerExists = qxctl_get_env_status(ctid, &status, QXCTL_STATUS_EXISTS) == 0 &&
                          (status.mask & QXCTL_STATUS_EXISTS) != 0;
  facts.lockHolder = host::lockHolder(host::settingOf(settings, "LOCKDIR"), ctid).value_or("");
  facts.privateArea = areaOf(params, settings);
  if (const auto earlier = host::interruptedMigration(ctid)) {
    facts.interruption = host::interruptionText(earlier->record);
  }
  std::error_code error;
  facts.configExists = fs::exists(host::configPath(ctid), error);
  facts.areaExists = fs::exists(facts.privateArea, error);
  facts.keptExists = fs::exists(facts.privateArea + ".migrated", error);
  findSpace(host::reservePercent(settings), facts);
  facts.rsync = host::receivingRsyncProblem(settings);
  const host::Container container = containerOf(params, settings, facts.privateArea);
  const std::string storage = container.var("STORAGE");
  if (!storage.empty()) facts.storage = storage;
  facts.quotasOff = container.hasNoDiskQuota();
  facts.hasGateway = !container.var("GATEWAY").empty();
  facts.placeProblem = problemOf(container);
  const host::IdChoice ids = host::idChoiceOf(container);
  if (ids.map) facts.ids = ids.map->count;
  facts.whyIds = ids.why;
  findAddresses(ctid, facts);

  std::optional<QXA::QXADistribution> distribution;
  config.getDistribution(distribution);
  findDistribution(!distribution ? ""
                   : distribution->version.empty()
                       ? distribution->name
                       : distribution->name + "-" + distribution->version,
                   facts);

  struct sysinfo machine;
  if (sysinfo(&machine) == 0) {
    facts.memoryBytes = static_cast<long long>(machine.totalram) * machine.mem_unit;
  }
  facts.processors = get_nprocs();
  for (const host::MountInfo& mount :
       host::parseMountInfo(host::readFile("/proc/self/mountinfo").value_or(""))) {
    facts.cgroupV1 = facts.cgroupV1 || mount.type == "cgroup";
    facts.cgroupV2 = facts.cgroupV2 || mount.type == "cgroup2";
  }
  facts.weaknesses = host::hostWarnings(host::readHostSecurity());
  return facts;
}

}  // namespace agent
