#include "agent/programs/migrate_options.h"

#include <stdexcept>

#include "agent/framework/validation.h"
#include "framework/env_manager.h"
#include "framework/errors.h"
#include "host/error.h"
#include "host/settings.h"
#include "host/text.h"

namespace agent {

namespace {

// What the file assigns. Like a container's own file it may refer to the settings of the
// host.
std::string configText(const std::string& path) {
  try {
    const auto own = host::readOwnShellVars(path, host::hostSettings());
    if (own) return host::formatShellVars(*own);
  } catch (const host::Error& error) {
    throw std::runtime_error("--config: " + std::string(error.what()));
  }
  throw std::runtime_error("--config: there is no file '" + path + "'");
}

}  // namespace

boost::shared_ptr<QXA::QXAMigrateP2VSerializerParams> makeParams(const MigrateOptions& options) {
  const QXA::QXAEnvConfigBashParser parser((QXL::QXLVocCacheLocal()));
  // Options are variables of the same file, so all are read in one way.
  const auto variablesOf = [&](const QXA::QXAEnvConfig& config) {
    return host::parseOwnShellVars(parser.format(config), host::idAsWritten());
  };
  QXA::QXAEnvConfig measured;
  if (parser.parse(options.measuredConfig, measured) != 0) {
    throw std::runtime_error("the measurement: " + QXL::getErrorMessage());
  }
  host::ShellVars variables = variablesOf(measured);
  if (!options.configFile.empty()) {
    QXA::QXAEnvConfig file;
    if (parser.parse(configText(options.configFile), file) != 0) {
      throw std::runtime_error("--config " + options.configFile + ": " + QXL::getErrorMessage());
    }
    const host::ShellVars given = variablesOf(file);
    // The two say one thing: one of them from the file and the other measured would
    // disagree.
    if (given.count("NETIF") || given.count("IP_ADDRESS")) {
      variables.erase("NETIF");
      variables.erase("IP_ADDRESS");
    }
    for (const auto& [name, value] : given) variables[name] = value;
  }
  std::string refused;
  for (const std::string& address : options.addresses) {
    if (refused.empty()) refused = checkAddress(address);
  }
  for (const std::string& address : options.nameservers) {
    if (refused.empty()) refused = checkNameserver(address);
  }
  if (!refused.empty()) throw std::runtime_error(refused);
  const auto put = [&](const char* name, const std::string& value) {
    if (!value.empty()) variables[name] = value;
  };
  put("DISTRIBUTION", options.distribution);
  put("HOSTNAME", options.hostname);
  put("OSTEMPLATE", options.osTemplate);
  put("NAMESERVER", host::joined(options.nameservers));
  put("SEARCHDOMAIN", host::joined(options.searchDomains));
  put("DISKSPACE", options.diskSpace);
  put("DISKINODES", options.diskInodes);
  if (!options.addresses.empty()) {
    variables["IP_ADDRESS"] = host::joined(options.addresses);
    variables["NETIF"] = "ifname=eth0";
    for (const std::string& address : options.addresses) variables["NETIF"] += ",ip=" + address;
  }
  for (const char* name : {"DISKSPACE", "DISKINODES"}) {
    variables.emplace(name, "unlimited:unlimited");
  }
  if (options.distributionRequired && variables["DISTRIBUTION"].empty()) {
    throw std::runtime_error(
        "the server's distribution is not known: give --distribution NAME-VERSION");
  }

  boost::shared_ptr<QXA::QXAMigrateP2VSerializerParams> params(
      new QXA::QXAMigrateP2VSerializerParams());
  params->ctid = options.ctid;
  params->options.config.reset(new QXA::QXAEnvConfig());
  if (parser.parse(host::formatShellVars(variables), *params->options.config) != 0) {
    throw std::runtime_error(QXL::getErrorMessage());
  }
  params->options.excludes = options.excludes;
  for (const std::string& name : options.services) params->options.services.push_back({name});
  params->options.keepOnFailure = options.keepOnFailure;
  const std::string problem = checkRecord(*params);
  if (!problem.empty()) throw std::runtime_error(problem);
  return params;
}

}  // namespace agent
