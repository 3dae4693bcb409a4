#include "agent/migrate_options.h"

#include <stdexcept>

#include "agent/shell_format.h"
#include "agent/validation.h"
#include "framework/env_manager.h"
#include "framework/errors.h"

namespace agent {

namespace {

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

}  // namespace

boost::shared_ptr<QXA::QXAMigrateP2VSerializerParams> makeParams(const MigrateOptions& options) {
  const QXA::QXAEnvConfigBashParser parser((QXL::QXLVocCacheLocal()));
  boost::shared_ptr<QXA::QXAEnvConfig> base(new QXA::QXAEnvConfig());
  if (!options.configFile.empty() && parser.read(options.configFile, *base) != 0) {
    throw std::runtime_error("--config " + QXL::getErrorMessage());
  }
  // Options are variables of the same file, so both go one road.
  ShellVariables variables;
  parseShell(parser.format(*base), variables);
  const auto put = [&](const char* name, const std::string& value) {
    if (!value.empty()) variables[name] = value;
  };
  put("DISTRIBUTION", options.distribution);
  put("HOSTNAME", options.hostname);
  put("OSTEMPLATE", options.osTemplate);
  put("NAMESERVER", joined(options.nameservers));
  put("SEARCHDOMAIN", joined(options.searchDomains));
  put("DISKSPACE", options.diskSpace);
  put("DISKINODES", options.diskInodes);
  if (!options.addresses.empty()) {
    variables["IP_ADDRESS"] = joined(options.addresses);
    variables["NETIF"] = "ifname=eth0";
    for (const std::string& address : options.addresses) variables["NETIF"] += ",ip=" + address;
  }
  for (const char* name : {"DISKSPACE", "DISKINODES"}) {
    variables.emplace(name, "unlimited:unlimited");
  }
  if (!variables.count("DISTRIBUTION")) {
    throw std::runtime_error(
        "the server's distribution is not known: give --distribution NAME-VERSION");
  }

  boost::shared_ptr<QXA::QXAMigrateP2VSerializerParams> params(
      new QXA::QXAMigrateP2VSerializerParams());
  params->ctid = options.ctid;
  params->options.config.reset(new QXA::QXAEnvConfig());
  if (parser.parse(formatShell(variables), *params->options.config) != 0) {
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
