// The controller of one migration from a physical server into a container.
#ifndef QX_CONTROL_CONTROL_H
#define QX_CONTROL_CONTROL_H

#include "framework/haul_control.h"

/// Runs on the hardware node. The framework makes one object per migration, has it
/// create the two ends, prepares them and the connector, and calls process once.
class QXLinMigrateP2VControl : public QXL::QXLHaulControl {
 public:
  explicit QXLinMigrateP2VControl(
      const boost::intrusive_ptr<QXL::QXLAccessProviderPrototype>& access);
  ~QXLinMigrateP2VControl() override;

  /// Connects to the physical server's agent, blocking until that is done, and
  /// makes the proxy of its source end. Null without an address to connect to, and
  /// when the connection fails (its error is then with the progress handler). Each
  /// call replaces the connection of an earlier one.
  boost::intrusive_ptr<QXL::QXLHaulSerializerPrototype> createSerializer() override;

  /// Makes the proxy of the destination end, served by the agent of this process.
  boost::intrusive_ptr<QXL::QXLHaulDeserializerPrototype> createDeserializer() override;

  /// Runs the stages in their order on the calling thread. Returns 0, or -1 at the
  /// first stage that fails, leaving that stage's error where it is; undoes nothing,
  /// that is the ends' own business when the framework finishes them. Both ends and
  /// the connector must be there (the process stops on a pointer's assertion).
  int process() override;

 protected:
  /// The connection to the physical server's agent; null before createSerializer.
  boost::intrusive_ptr<QXL::QXLAccessAgentPrototype> accessAgent_;

 private:
  /// Selects a synchronous call, reporting to this controller's caller, for the
  /// next request of an end.
  template <class End>
  End& synced(End& end);
};

#endif
