// Gathering what a plan needs, over a connection.
#ifndef QX_AGENT_PROGRAMS_PLANNING_H
#define QX_AGENT_PROGRAMS_PLANNING_H

#include <memory>

#include "agent/plan/plan_facts.h"
#include "agent/programs/migrate_options.h"
#include "agent/programs/migration.h"
#include "host/migration_record.h"

namespace agent {

/// A server's agent, and what is shown of the work there. The connection serves a
/// migration from the same address as well, as long as the object lives. To be made
/// with the plug-in loaded. `cancel` stops what runs. Everything here throws
/// std::runtime_error with the reason when it fails.
class Planning {
 public:
  Planning(const QXL::QXLConnectionInfo& source, MigrationView& view,
           const std::shared_ptr<CancelToken>& cancel);
  ~Planning();
  Planning(const Planning&) = delete;
  Planning& operator=(const Planning&) = delete;

  /// Which machine the server is, as far as it is known.
  host::ServerIdentity identify();

  // To the server's agent, for what else is asked of it.
  QXL::QXLRequestTransport& transport();

  Measurement measure(const MeasureSettings& settings);

  /// Measures and surveys the server, looks at this host, and completes the options:
  /// with the computed configuration under what they say, and with the exclusions.
  PlanFacts gather(MigrateOptions& options, const MeasureSettings& settings);

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace agent

#endif
