#include "framework/env_config.h"

#include "agent/system/last_error.h"
#include "host/host_name.h"

namespace {

std::string expandId(const std::string& text, unsigned int ctid) {
  std::string result;
  for (size_t i = 0; i < text.size();) {
    size_t length = 0;
    if (text.compare(i, 7, "${VEID}") == 0) {
      length = 7;
    } else if (text.compare(i, 5, "$VEID") == 0) {
      length = 5;
    }
    if (length == 0) {
      result += text[i++];
    } else {
      result += std::to_string(ctid);
      i += length;
    }
  }
  return result;
}

int getExpanded(const std::optional<std::string>& variable, const char* name, unsigned int ctid,
                std::string& path) {
  if (!variable) return agent::fail(std::string(name) + " is not set");
  path = expandId(*variable, ctid);
  return 0;
}

}  // namespace

namespace QXL {

QXLEnvConfig::QXLEnvConfig() = default;
QXLEnvConfig::~QXLEnvConfig() = default;

int QXLEnvConfig::setHostname(const std::optional<std::string>& hostname) {
  if (hostname && !host::isHostName(*hostname)) {
    return agent::fail("'" + *hostname + "' is not a valid host name");
  }
  m_hostname = hostname;
  return 0;
}
int QXLEnvConfig::getHostname(std::optional<std::string>& hostname) const {
  hostname = m_hostname;
  return 0;
}
int QXLEnvConfig::setAddresses(const std::optional<std::vector<QXLIPAddress>>& addresses) {
  m_addresses = addresses;
  return 0;
}
int QXLEnvConfig::getAddresses(std::optional<std::vector<QXLIPAddress>>& addresses) const {
  addresses = m_addresses;
  return 0;
}
int QXLEnvConfig::setNameservers(const std::optional<std::list<std::string>>& servers) {
  m_nameservers = servers;
  return 0;
}
int QXLEnvConfig::getNameservers(std::optional<std::list<std::string>>& servers) const {
  servers = m_nameservers;
  return 0;
}
int QXLEnvConfig::setStringListAttr(const std::set<std::string>& values, int attribute) {
  m_stringLists[attribute] = values;
  return 0;
}
int QXLEnvConfig::getStringListAttr(std::set<std::string>& values, int attribute) const {
  const auto found = m_stringLists.find(attribute);
  values = found == m_stringLists.end() ? std::set<std::string>() : found->second;
  return 0;
}

QXLVEnvConfig::QXLVEnvConfig() = default;
QXLVEnvConfig::~QXLVEnvConfig() = default;

int QXLVEnvConfig::setQoSes(const std::optional<std::set<QXLQoS>>& qoses) {
  m_qoses = qoses;
  return 0;
}
int QXLVEnvConfig::getQoSes(std::optional<std::set<QXLQoS>>& qoses) const {
  qoses = m_qoses;
  return 0;
}

}  // namespace QXL

namespace QXA {

QXAEnvConfig::QXAEnvConfig() = default;
QXAEnvConfig::~QXAEnvConfig() = default;

int QXAEnvConfig::setDistribution(const std::optional<QXADistribution>& distribution) {
  m_distribution = distribution;
  return 0;
}
int QXAEnvConfig::getDistribution(std::optional<QXADistribution>& distribution) const {
  distribution = m_distribution;
  return 0;
}
int QXAEnvConfig::setOsTemplate(const std::optional<QXAOsTemplate>& osTemplate) {
  m_osTemplate = osTemplate;
  return 0;
}
int QXAEnvConfig::getOsTemplate(std::optional<QXAOsTemplate>& osTemplate) const {
  osTemplate = m_osTemplate;
  return 0;
}
int QXAEnvConfig::setVERootVar(const std::optional<std::string>& path) {
  m_veRoot = path;
  return 0;
}
int QXAEnvConfig::getVERootVar(std::optional<std::string>& path) const {
  path = m_veRoot;
  return 0;
}
int QXAEnvConfig::getVERoot(unsigned int ctid, std::string& path) const {
  return getExpanded(m_veRoot, "VE_ROOT", ctid, path);
}
int QXAEnvConfig::setVEPrivateVar(const std::optional<std::string>& path) {
  m_vePrivate = path;
  return 0;
}
int QXAEnvConfig::getVEPrivateVar(std::optional<std::string>& path) const {
  path = m_vePrivate;
  return 0;
}
int QXAEnvConfig::getVEPrivate(unsigned int ctid, std::string& path) const {
  return getExpanded(m_vePrivate, "VE_PRIVATE", ctid, path);
}
int QXAEnvConfig::setNetVEths(const std::optional<std::vector<QXANetVEth>>& interfaces) {
  m_netVEths = interfaces;
  return 0;
}
int QXAEnvConfig::getNetVEths(std::optional<std::vector<QXANetVEth>>& interfaces) const {
  interfaces = m_netVEths;
  return 0;
}
int QXAEnvConfig::setSLMMode(const std::optional<std::string>& mode) {
  m_slmMode = mode;
  return 0;
}
int QXAEnvConfig::getSLMMode(std::optional<std::string>& mode) const {
  mode = m_slmMode;
  return 0;
}

}  // namespace QXA
