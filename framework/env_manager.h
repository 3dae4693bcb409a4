// The host: its settings, its configuration files, its pool of addresses.
#ifndef QX_FRAMEWORK_ENV_MANAGER_H
#define QX_FRAMEWORK_ENV_MANAGER_H

#include <boost/smart_ptr/shared_ptr.hpp>
#include <map>
#include <string>
#include <vector>

#include "framework/access.h"
#include "framework/env_config.h"

namespace QXL {

/// Names of configuration attributes: the variable that an attribute number or a
/// resource parameter has in a configuration file.
class QXL_API QXLVocCacheLocal {
 public:
  QXLVocCacheLocal();
  /// "" for a number that has no variable. 1558 is SEARCHDOMAIN.
  std::string getVariable(int attribute) const;
};

namespace IPAutoAllocation {

/// Fills in the addresses that interfaces leave to the host. The builder has
///   int allocate(const QXA::QXANetVEth& interface, QXLIPAddress& address);
/// which replaces an "auto" address, and returns non-zero with the reason in
/// QXL::getErrorMessage() when the pool has none left.
template <class Builder>
class Director {
 public:
  /// Interfaces keep what was assigned before a failure.
  static int assign(std::vector<QXA::QXANetVEth>& interfaces,
                    const boost::intrusive_ptr<QXLAccessProviderPrototype>& access) {
    Builder builder(access);
    for (QXA::QXANetVEth& interface : interfaces) {
      for (QXLIPAddress& address : interface.addresses) {
        if (address.text != "auto") continue;
        if (int result = builder.allocate(interface, address)) return result;
      }
    }
    return 0;
  }
};

}  // namespace IPAutoAllocation
}  // namespace QXL

namespace QXA {

namespace IPAutoAllocation {

/// Takes addresses from the host's pool (IP_POOL of the host settings): the first
/// that no registered container has and that this builder has not given yet.
class QXL_API Builder {
 public:
  explicit Builder(const boost::intrusive_ptr<QXL::QXLAccessProviderPrototype>& access);
  int allocate(const QXANetVEth& interface, QXL::QXLIPAddress& address);

 private:
  std::vector<std::string> given_;
};

}  // namespace IPAutoAllocation

/// Reads and writes a container's configuration as a file of shell variables.
class QXL_API QXAEnvConfigBashParser {
 public:
  explicit QXAEnvConfigBashParser(const QXL::QXLVocCacheLocal& vocabulary);

  /// Both return 0, or non-zero with the reason in QXL::getErrorMessage(). The
  /// file appears whole or not at all.
  int write(const std::string& path, const QXAEnvConfig& config) const;
  int read(const std::string& path, QXAEnvConfig& config) const;

  /// The same on text.
  std::string format(const QXAEnvConfig& config) const;
  int parse(const std::string& text, QXAEnvConfig& config) const;

 private:
  QXL::QXLVocCacheLocal vocabulary_;
};

/// What the host's administrator has set.
struct QXAVtSettings {
  std::string lockDir;                          ///< where the container lock files are
  std::map<std::string, std::string> defaults;  ///< "ve_root", "ve_private", by key
};

/// The manager of the containers of this host.
class QXL_API QXAEnvM {
 public:
  virtual ~QXAEnvM() = default;
  /// Non-zero with the reason in QXL::getErrorMessage() when they cannot be read.
  virtual int getVtSettings(QXAVtSettings& settings) = 0;
};

class QXL_API QXALibFunctionality {
 public:
  /// Null where this machine is no container host.
  static boost::shared_ptr<QXAEnvM> getQXAEnvMLocal();
};

}  // namespace QXA

#endif
