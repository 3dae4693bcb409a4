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

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <sstream>

#include "agent/system/file_io.h"
#include "agent/system/last_error.h"
#include "agent/system/shell_format.h"
#include "framework/env_manager.h"
#include "framework/errors.h"

namespace {

constexpr int searchDomainAttribute = 1558;

constexpr std::array<const char*, 27> qosNames = {
    "numproc",     "avnumproc",      "numtcpsock",    "numothersock", "numpty",       "numfile",
    "dcachesize",  "kmemsize",       "tcpsndbuf",     "tcprcvbuf",    "othersockbuf", "dgramrcvbuf",
    "vmguarpages", "privvmpages",    "oomguarpages",  "lockedpages",  "shmpages",     "physpages",
    "numflock",    "numsiginfo",     "numiptent",     "diskspace",    "diskinodes",   "cpuunits",
    "quotatime",   "quotaugidlimit", "slmmemorylimit"};

std::string upper(std::string text) {
  for (char& c : text) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
  return text;
}

std::vector<std::string> cut(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

std::vector<std::string> words(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> found;
  for (std::string word; stream >> word;) found.push_back(word);
  return found;
}

template <class Range>
std::string joined(const Range& range) {
  std::string text;
  for (const auto& item : range) text += (text.empty() ? "" : " ") + std::string(item);
  return text;
}

// A distribution's version is what follows the last "-", if that is a digit.
QXA::QXADistribution parseDistribution(const std::string& text) {
  const size_t dash = text.rfind('-');
  if (dash == std::string::npos || dash == 0 || dash + 1 >= text.size() ||
      !isdigit(static_cast<unsigned char>(text[dash + 1]))) {
    return {text, ""};
  }
  return {text.substr(0, dash), text.substr(dash + 1)};
}

bool parseNumber(const std::string& text, long long& value) {
  if (text == "unlimited") {
    value = 9223372036854775807LL;
    return true;
  }
  errno = 0;
  char* end;
  value = strtoll(text.c_str(), &end, 10);
  return !text.empty() && *end == '\0' && errno == 0 && value >= 0;
}

int parseQoS(const std::string& name, const std::string& text, QXL::QXLQoS& qos) {
  qos.name = name;
  const size_t colon = text.find(':');
  qos.barrierPresent = colon != std::string::npos;
  const std::string limit = qos.barrierPresent ? text.substr(colon + 1) : text;
  if ((qos.barrierPresent && !parseNumber(text.substr(0, colon), qos.barrier)) ||
      !parseNumber(limit, qos.limit)) {
    return agent::fail(upper(name) + " is neither a number nor two separated by ':': '" + text +
                       "'");
  }
  return 0;
}

std::string formatInterface(const QXA::QXANetVEth& interface) {
  std::string text = "ifname=" + interface.name;
  if (!interface.hostName.empty()) text += ",host_ifname=" + interface.hostName;
  if (!interface.mac.empty()) text += ",mac=" + interface.mac;
  for (const QXL::QXLIPAddress& address : interface.addresses) text += ",ip=" + address.text;
  return text;
}

int parseInterface(const std::string& text, QXA::QXANetVEth& interface) {
  for (const std::string& field : cut(text, ',')) {
    const size_t equals = field.find('=');
    const std::string key = field.substr(0, equals);
    const std::string value = equals == std::string::npos ? "" : field.substr(equals + 1);
    if (key == "ifname") {
      interface.name = value;
    } else if (key == "host_ifname") {
      interface.hostName = value;
    } else if (key == "mac") {
      interface.mac = value;
    } else if (key == "ip") {
      interface.addresses.emplace_back(value);
    } else {
      return agent::fail("NETIF has an unknown field: '" + field + "'");
    }
  }
  if (interface.name.empty())
    return agent::fail("NETIF has an interface without ifname: '" + text + "'");
  return 0;
}

}  // namespace

namespace QXL {

QXLVocCacheLocal::QXLVocCacheLocal() = default;

std::string QXLVocCacheLocal::getVariable(int attribute) const {
  return attribute == searchDomainAttribute ? "SEARCHDOMAIN" : "";
}

}  // namespace QXL

namespace QXA {

QXAEnvConfigBashParser::QXAEnvConfigBashParser(const QXL::QXLVocCacheLocal& vocabulary)
    : m_vocabulary(vocabulary) {}

std::string QXAEnvConfigBashParser::format(const QXAEnvConfig& config) const {
  agent::ShellVariables variables(config.otherVariables.begin(), config.otherVariables.end());
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
    variables["IP_ADDRESS"] = joined(texts);
  }
  std::optional<std::list<std::string>> servers;
  config.getNameservers(servers);
  if (servers) variables["NAMESERVER"] = joined(*servers);
  std::set<std::string> domains;
  config.getStringListAttr(domains, searchDomainAttribute);
  if (!domains.empty())
    variables[m_vocabulary.getVariable(searchDomainAttribute)] = joined(domains);

  std::optional<std::vector<QXANetVEth>> interfaces;
  config.getNetVEths(interfaces);
  if (interfaces) {
    std::string all;
    for (const QXANetVEth& interface : *interfaces) {
      all += (all.empty() ? "" : ";") + formatInterface(interface);
    }
    variables["NETIF"] = all;
  }
  std::optional<std::set<QXL::QXLQoS>> qoses;
  config.getQoSes(qoses);
  if (qoses) {
    for (const QXL::QXLQoS& qos : *qoses) {
      variables[upper(qos.name)] =
          (qos.barrierPresent ? std::to_string(qos.barrier) + ":" : "") + std::to_string(qos.limit);
    }
  }
  return agent::formatShell(variables);
}

int QXAEnvConfigBashParser::parse(const std::string& text, QXAEnvConfig& config) const {
  agent::ShellVariables variables;
  if (agent::parseShell(text, variables) != 0) return -1;
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
  if (const auto value = take("DISTRIBUTION")) config.setDistribution(parseDistribution(*value));
  if (const auto value = take("OSTEMPLATE")) config.setOsTemplate(QXAOsTemplate{*value});
  if (const auto value = take("IP_ADDRESS")) {
    std::vector<QXL::QXLIPAddress> addresses;
    for (const std::string& word : words(*value)) addresses.emplace_back(word);
    config.setAddresses(addresses);
  }
  if (const auto value = take("NAMESERVER")) {
    const std::vector<std::string> list = words(*value);
    config.setNameservers(std::list<std::string>(list.begin(), list.end()));
  }
  if (const auto value = take(m_vocabulary.getVariable(searchDomainAttribute))) {
    const std::vector<std::string> list = words(*value);
    config.setStringListAttr(std::set<std::string>(list.begin(), list.end()),
                             searchDomainAttribute);
  }
  if (const auto value = take("NETIF")) {
    std::vector<QXANetVEth> interfaces;
    for (const std::string& part : cut(*value, ';')) {
      QXANetVEth interface;
      if (parseInterface(part, interface) != 0) return -1;
      interfaces.push_back(interface);
    }
    config.setNetVEths(interfaces);
  }
  std::set<QXL::QXLQoS> qoses;
  for (const char* name : qosNames) {
    const auto value = take(upper(name));
    if (!value) continue;
    QXL::QXLQoS qos;
    if (parseQoS(name, *value, qos) != 0) return -1;
    qoses.insert(qos);
  }
  if (!qoses.empty()) config.setQoSes(qoses);
  config.otherVariables = variables;
  return 0;
}

int QXAEnvConfigBashParser::write(const std::string& path, const QXAEnvConfig& config) const {
  return agent::writeFileAtomically(path, format(config), 0644);
}

int QXAEnvConfigBashParser::read(const std::string& path, QXAEnvConfig& config) const {
  std::string text;
  if (agent::readFile(path, text) != 0) return -1;
  if (parse(text, config) != 0) return agent::fail(path + ": " + QXL::getErrorMessage());
  return 0;
}

}  // namespace QXA
