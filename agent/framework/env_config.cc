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
  hostname_ = hostname;
  return 0;
}
int QXLEnvConfig::getHostname(std::optional<std::string>& hostname) const {
  hostname = hostname_;
  return 0;
}
int QXLEnvConfig::setAddresses(const std::optional<std::vector<QXLIPAddress>>& addresses) {
  addresses_ = addresses;
  return 0;
}
int QXLEnvConfig::getAddresses(std::optional<std::vector<QXLIPAddress>>& addresses) const {
  addresses = addresses_;
  return 0;
}
int QXLEnvConfig::setNameservers(const std::optional<std::list<std::string>>& servers) {
  nameservers_ = servers;
  return 0;
}
int QXLEnvConfig::getNameservers(std::optional<std::list<std::string>>& servers) const {
  servers = nameservers_;
  return 0;
}
int QXLEnvConfig::setStringListAttr(const std::set<std::string>& values, int attribute) {
  stringLists_[attribute] = values;
  return 0;
}
int QXLEnvConfig::getStringListAttr(std::set<std::string>& values, int attribute) const {
  const auto found = stringLists_.find(attribute);
  values = found == stringLists_.end() ? std::set<std::string>() : found->second;
  return 0;
}

QXLVEnvConfig::QXLVEnvConfig() = default;
QXLVEnvConfig::~QXLVEnvConfig() = default;

int QXLVEnvConfig::setQoSes(const std::optional<std::set<QXLQoS>>& qoses) {
  qoses_ = qoses;
  return 0;
}
int QXLVEnvConfig::getQoSes(std::optional<std::set<QXLQoS>>& qoses) const {
  qoses = qoses_;
  return 0;
}

}  // namespace QXL

namespace QXA {

QXAEnvConfig::QXAEnvConfig() = default;
QXAEnvConfig::~QXAEnvConfig() = default;

int QXAEnvConfig::setDistribution(const std::optional<QXADistribution>& distribution) {
  distribution_ = distribution;
  return 0;
}
int QXAEnvConfig::getDistribution(std::optional<QXADistribution>& distribution) const {
  distribution = distribution_;
  return 0;
}
int QXAEnvConfig::setOsTemplate(const std::optional<QXAOsTemplate>& osTemplate) {
  osTemplate_ = osTemplate;
  return 0;
}
int QXAEnvConfig::getOsTemplate(std::optional<QXAOsTemplate>& osTemplate) const {
  osTemplate = osTemplate_;
  return 0;
}
int QXAEnvConfig::setVERootVar(const std::optional<std::string>& path) {
  veRoot_ = path;
  return 0;
}
int QXAEnvConfig::getVERootVar(std::optional<std::string>& path) const {
  path = veRoot_;
  return 0;
}
int QXAEnvConfig::getVERoot(unsigned int ctid, std::string& path) const {
  return getExpanded(veRoot_, "VE_ROOT", ctid, path);
}
int QXAEnvConfig::setVEPrivateVar(const std::optional<std::string>& path) {
  vePrivate_ = path;
  return 0;
}
int QXAEnvConfig::getVEPrivateVar(std::optional<std::string>& path) const {
  path = vePrivate_;
  return 0;
}
int QXAEnvConfig::getVEPrivate(unsigned int ctid, std::string& path) const {
  return getExpanded(vePrivate_, "VE_PRIVATE", ctid, path);
}
int QXAEnvConfig::setNetVEths(const std::optional<std::vector<QXANetVEth>>& interfaces) {
  netVEths_ = interfaces;
  return 0;
}
int QXAEnvConfig::getNetVEths(std::optional<std::vector<QXANetVEth>>& interfaces) const {
  interfaces = netVEths_;
  return 0;
}
int QXAEnvConfig::setSLMMode(const std::optional<std::string>& mode) {
  slmMode_ = mode;
  return 0;
}
int QXAEnvConfig::getSLMMode(std::optional<std::string>& mode) const {
  mode = slmMode_;
  return 0;
}

}  // namespace QXA
