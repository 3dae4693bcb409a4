// The configuration of a container, as the framework's own kinds of environment
// build on one another.
#ifndef QX_FRAMEWORK_ENV_CONFIG_H
#define QX_FRAMEWORK_ENV_CONFIG_H

#include <list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "framework/api.h"

namespace QXL {

// Getters fill their argument, with nothing for a property that is not set, and
// return 0. Setters take nothing to unset a property, and return 0, or non-zero
// when they refuse the value, the reason being in QXL::getErrorMessage().

/// An address as text: numeric, with or without "/prefix", or one of the words
/// "dhcp" (asked for on the network) and "auto" (assigned from the host's pool).
struct QXLIPAddress {
  QXLIPAddress() = default;
  explicit QXLIPAddress(const std::string& addressText) : text(addressText) {}
  bool operator==(const QXLIPAddress& other) const { return text == other.text; }
  std::string text;
};

/// One resource parameter. Ordered by name.
struct QXLQoS {
  bool operator<(const QXLQoS& other) const { return name < other.name; }
  std::string name;
  long long barrier = 0;        ///< soft limit
  bool barrierPresent = false;  ///< false for parameters of one value
  long long limit = 0;          ///< hard limit, or the single value
};

/// A system: anything with a name and addresses.
class QXL_API QXLEnvConfig {
 public:
  QXLEnvConfig();
  virtual ~QXLEnvConfig();

  /// Refuses what is no host name (RFC 1123: letters, digits, "-" and ".").
  int setHostname(const std::optional<std::string>& hostname);
  int getHostname(std::optional<std::string>& hostname) const;
  int setAddresses(const std::optional<std::vector<QXLIPAddress>>& addresses);
  int getAddresses(std::optional<std::vector<QXLIPAddress>>& addresses) const;
  int setNameservers(const std::optional<std::list<std::string>>& servers);
  int getNameservers(std::optional<std::list<std::string>>& servers) const;

  /// Lists of strings by attribute number; 1558 is the search domains.
  int setStringListAttr(const std::set<std::string>& values, int attribute);
  int getStringListAttr(std::set<std::string>& values, int attribute) const;

 protected:
  std::optional<std::string> hostname_;
  std::optional<std::vector<QXLIPAddress>> addresses_;
  std::optional<std::list<std::string>> nameservers_;
  std::map<int, std::set<std::string>> stringLists_;
};

/// A virtual system: one with resource parameters.
class QXL_API QXLVEnvConfig : public QXLEnvConfig {
 public:
  QXLVEnvConfig();
  ~QXLVEnvConfig() override;

  int setQoSes(const std::optional<std::set<QXLQoS>>& qoses);
  int getQoSes(std::optional<std::set<QXLQoS>>& qoses) const;

 protected:
  std::optional<std::set<QXLQoS>> qoses_;
};

}  // namespace QXL

namespace QXA {

struct QXADistribution {
  bool operator==(const QXADistribution& o) const { return name == o.name && version == o.version; }
  std::string name;
  std::string version;  ///< may be empty
};

struct QXAOsTemplate {
  std::string name;
};

/// One network interface of a container.
struct QXANetVEth {
  std::string name;      ///< inside, such as "eth0"
  std::string hostName;  ///< on the host; empty for a generated name
  std::string mac;       ///< inside, "aa:bb:cc:dd:ee:ff"; empty for a generated one
  std::vector<QXL::QXLIPAddress> addresses;
};

/// A container. Paths may hold "$VEID", which stands for the container's id; the
/// getters without "Var" give them expanded, and return non-zero when the
/// variable is not set.
class QXL_API QXAEnvConfig : public QXL::QXLVEnvConfig {
 public:
  QXAEnvConfig();
  ~QXAEnvConfig() override;

  int setDistribution(const std::optional<QXADistribution>& distribution);
  int getDistribution(std::optional<QXADistribution>& distribution) const;
  int setOsTemplate(const std::optional<QXAOsTemplate>& osTemplate);
  int getOsTemplate(std::optional<QXAOsTemplate>& osTemplate) const;
  int setVERootVar(const std::optional<std::string>& path);
  int getVERootVar(std::optional<std::string>& path) const;
  int getVERoot(unsigned int ctid, std::string& path) const;
  int setVEPrivateVar(const std::optional<std::string>& path);
  int getVEPrivateVar(std::optional<std::string>& path) const;
  int getVEPrivate(unsigned int ctid, std::string& path) const;
  int setNetVEths(const std::optional<std::vector<QXANetVEth>>& interfaces);
  int getNetVEths(std::optional<std::vector<QXANetVEth>>& interfaces) const;
  /// "all", or another word of the host's memory management.
  int setSLMMode(const std::optional<std::string>& mode);
  int getSLMMode(std::optional<std::string>& mode) const;

  /// Variables that no property stands for; a writer puts them back as they were.
  std::map<std::string, std::string> otherVariables;

 protected:
  std::optional<QXADistribution> distribution_;
  std::optional<QXAOsTemplate> osTemplate_;
  std::optional<std::string> veRoot_;
  std::optional<std::string> vePrivate_;
  std::optional<std::vector<QXANetVEth>> netVEths_;
  std::optional<std::string> slmMode_;
};

}  // namespace QXA

#endif
