// The container's configuration file: which variable holds which property.
//
//   HOSTNAME, VE_ROOT, VE_PRIVATE, SLMMODE    text
//   DISTRIBUTION                              name, or name-version
//   OSTEMPLATE                                name
//   IP_ADDRESS, NAMESERVER, SEARCHDOMAIN      words separated by blanks
//   NETIF      interfaces separated by ";", each of fields separated by ",":
//              ifname=NAME, host_ifname=NAME, mac=MAC, ip=ADDRESS (any number)
//   NUMPROC ... each resource parameter by its name in capitals:
//              "barrier:limit", or "limit" for those of one value

#include <cctype>

#include "agent/system/last_error.h"
#include "framework/env_manager.h"
#include "framework/errors.h"
#include "host/distributions.h"
#include "host/file.h"
#include "host/interfaces.h"
#include "host/resources.h"
#include "host/shell_vars.h"
#include "host/text.h"

namespace {

constexpr int kSearchDomainAttribute = 1558;

int parseQoS(const host::Resource& resource, const std::string& text, QXL::QXLQoS& qos) {
  const std::optional<host::ResourceValue> value = host::parseResource(text);
  if (!value) {
    return agent::fail(host::recordName(resource) +
                       " is neither a number nor two separated by ':': '" + text + "'");
  }
  qos.name = resource.name;
  qos.barrierPresent = value->hasBarrier;
  if (value->hasBarrier) qos.barrier = static_cast<long long>(value->barrier);
  qos.limit = static_cast<long long>(value->limit);
  return 0;
}

std::string formatInterfaces(const std::vector<QXA::QXANetVEth>& interfaces) {
  std::vector<host::Interface> all;
  for (const QXA::QXANetVEth& interface : interfaces) {
    all.push_back({interface.name, interface.hostName, interface.mac, {}});
    for (const QXL::QXLIPAddress& address : interface.addresses)
      all.back().addresses.push_back(address.text);
  }
  return host::formatNetif(all);
}

int parseInterfaces(const std::string& text, std::vector<QXA::QXANetVEth>& interfaces) {
  return agent::attempt([&]() {
    for (const host::Interface& interface : host::parseNetif(text)) {
      interfaces.push_back({interface.name, interface.hostName, interface.mac, {}});
      for (const std::string& address : interface.addresses)
        interfaces.back().addresses.emplace_back(address);
    }
  });
}

}  // namespace

namespace QXL {

QXLVocCacheLocal::QXLVocCacheLocal() = default;

std::string QXLVocCacheLocal::getVariable(int attribute) const {
  return attribute == kSearchDomainAttribute ? "SEARCHDOMAIN" : "";
}

}  // namespace QXL

namespace QXA {

QXAEnvConfigBashParser::QXAEnvConfigBashParser(const QXL::QXLVocCacheLocal& vocabulary)
    : vocabulary_(vocabulary) {}

std::string QXAEnvConfigBashParser::format(const QXAEnvConfig& config) const {
  host::ShellVars variables(config.otherVariables.begin(), config.otherVariables.end());
  const auto putText = [&](const char* name, const std::optional<std::string>& value) {
    if (value) variables[name] = *value;
  };
  std::optional<std::string> text;
  config.getHostname(text);
  putText("HOSTNAME", text);
  config.getVERootVar(text);
  putText("VE_ROOT", text);
  config.getVEPrivateVar(text);
  putText("VE_PRIVATE", text);
  config.getSLMMode(text);
  putText("SLMMODE", text);

  std::optional<QXADistribution> distribution;
  config.getDistribution(distribution);
  if (distribution) {
    variables["DISTRIBUTION"] =
        distribution->name + (distribution->version.empty() ? "" : "-" + distribution->version);
  }
  std::optional<QXAOsTemplate> osTemplate;
  config.getOsTemplate(osTemplate);
  if (osTemplate) variables["OSTEMPLATE"] = osTemplate->name;

  std::optional<std::vector<QXL::QXLIPAddress>> addresses;
  config.getAddresses(addresses);
  if (addresses) {
    std::vector<std::string> texts;
    for (const QXL::QXLIPAddress& address : *addresses) texts.push_back(address.text);
    variables["IP_ADDRESS"] = host::joined(texts);
  }
  std::optional<std::list<std::string>> servers;
  config.getNameservers(servers);
  if (servers) variables["NAMESERVER"] = host::joined(*servers);
  std::set<std::string> domains;
  config.getStringListAttr(domains, kSearchDomainAttribute);
  if (!domains.empty())
    variables[vocabulary_.getVariable(kSearchDomainAttribute)] = host::joined(domains);

  std::optional<std::vector<QXANetVEth>> interfaces;
  config.getNetVEths(interfaces);
  if (interfaces) variables["NETIF"] = formatInterfaces(*interfaces);
  std::optional<std::set<QXL::QXLQoS>> qoses;
  config.getQoSes(qoses);
  if (qoses) {
    for (const QXL::QXLQoS& qos : *qoses) {
      std::string record = qos.name;
      for (char& c : record) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
      variables[record] =
          (qos.barrierPresent ? std::to_string(qos.barrier) + ":" : "") + std::to_string(qos.limit);
    }
  }
  return host::formatShellVars(variables);
}

int QXAEnvConfigBashParser::parse(const std::string& text, QXAEnvConfig& config) const {
  host::ShellVars variables;
  if (agent::attempt([&]() { variables = host::parseOwnShellVars(text, host::idAsWritten()); }) !=
      0) {
    return -1;
  }
  const auto take = [&](const std::string& name) -> std::optional<std::string> {
    const auto found = variables.find(name);
    if (found == variables.end()) return std::nullopt;
    std::string value = std::move(found->second);
    variables.erase(found);
    return value;
  };
  if (const auto hostname = take("HOSTNAME")) {
    if (int result = config.setHostname(*hostname)) return result;
  }
  if (const auto value = take("VE_ROOT")) config.setVERootVar(*value);
  if (const auto value = take("VE_PRIVATE")) config.setVEPrivateVar(*value);
  if (const auto value = take("SLMMODE")) config.setSLMMode(*value);
  if (const auto value = take("DISTRIBUTION")) {
    const auto [name, version] = host::splitDistribution(*value);
    config.setDistribution(QXADistribution{name, version});
  }
  if (const auto value = take("OSTEMPLATE")) config.setOsTemplate(QXAOsTemplate{*value});
  if (const auto value = take("IP_ADDRESS")) {
    std::vector<QXL::QXLIPAddress> addresses;
    for (const std::string_view word : host::splitWords(*value))
      addresses.emplace_back(std::string(word));
    config.setAddresses(addresses);
  }
  if (const auto value = take("NAMESERVER")) {
    const std::vector<std::string_view> list = host::splitWords(*value);
    config.setNameservers(std::list<std::string>(list.begin(), list.end()));
  }
  if (const auto value = take(vocabulary_.getVariable(kSearchDomainAttribute))) {
    const std::vector<std::string_view> list = host::splitWords(*value);
    config.setStringListAttr(std::set<std::string>(list.begin(), list.end()),
                             kSearchDomainAttribute);
  }
  if (const auto value = take("NETIF")) {
    std::vector<QXANetVEth> interfaces;
    if (parseInterfaces(*value, interfaces) != 0) return -1;
    config.setNetVEths(interfaces);
  }
  std::set<QXL::QXLQoS> qoses;
  for (const host::Resource& resource : host::resources()) {
    const auto value = take(host::recordName(resource));
    if (!value) continue;
    QXL::QXLQoS qos;
    if (parseQoS(resource, *value, qos) != 0) return -1;
    qoses.insert(qos);
  }
  if (!qoses.empty()) config.setQoSes(qoses);
  config.otherVariables = variables;
  return 0;
}

int QXAEnvConfigBashParser::write(const std::string& path, const QXAEnvConfig& config) const {
  return agent::attempt([&]() { host::replaceFileDurably(path, format(config), 0644); });
}

int QXAEnvConfigBashParser::read(const std::string& path, QXAEnvConfig& config) const {
  const std::optional<std::string> text = host::readFile(path);
  if (!text) return agent::failErrno("cannot read " + path);
  if (parse(*text, config) != 0) return agent::fail(path + ": " + QXL::getErrorMessage());
  return 0;
}

}  // namespace QXA
