// From the command line to the parameters of a migration.
#ifndef QX_AGENT_PROGRAMS_MIGRATE_OPTIONS_H
#define QX_AGENT_PROGRAMS_MIGRATE_OPTIONS_H

#include <string>
#include <vector>

#include "framework/migrate_params.h"

namespace agent {

/// What qxmigrate was told; empty and false where nothing was said.
struct MigrateOptions {
  long long ctid = 0;
  std::string measuredConfig;  ///< NAME="value" lines that the measurement gave
  std::string configFile;
  std::string distribution;
  std::string hostname;
  std::string osTemplate;
  std::vector<std::string> addresses;
  std::vector<std::string> nameservers;
  std::vector<std::string> searchDomains;
  std::string diskSpace;
  std::string diskInodes;
  std::vector<std::string> excludes;
  std::vector<std::string> services;
  bool keepOnFailure = false;
  bool distributionRequired = true;  ///< false: parameters without one are made, too
};

/// Makes the parameters: what was measured first, the configuration file over it,
/// the options over both.
/// Parameters without disk limits get unlimited ones. Throws std::runtime_error
/// with a text that names the refused value.
boost::shared_ptr<QXA::QXAMigrateP2VSerializerParams> makeParams(const MigrateOptions& options);

}  // namespace agent

#endif
