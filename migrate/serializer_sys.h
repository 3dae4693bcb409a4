// The worker on the physical server.
#ifndef QX_MIGRATE_SERIALIZER_SYS_H
#define QX_MIGRATE_SERIALIZER_SYS_H

#include <memory>
#include <string>

#include "frame/stages.h"
#include "framework/haul.h"
#include "framework/runner.h"

/// Runs the source's stages on the machine itself. The framework calls init first,
/// then the stages one at a time, finish last. Every operation checks the caller's
/// right (refused with code 414), returns 0 or the error it recorded in the
/// request's context, and leaves nothing on the server to undo.
class DRAHN2VPSMigrateSerializerSys : public QXLinMigrateP2VSerializer,
                                      public QXL::QXLHaulSerializerBaseLocalPrototype {
 public:
  explicit DRAHN2VPSMigrateSerializerSys(
      boost::intrusive_ptr<QXL::QXLAccessProviderPrototype> access);
  ~DRAHN2VPSMigrateSerializerSys() override;

  /// Starts rsync as a server that sends "/" over the channel's descriptors and
  /// returns once it runs. An rsync that still runs is ended and replaced.
  int startRSyncServer(boost::intrusive_ptr<QXL::QXLChannelEndPrototype> channel) override;
  /// Waits for rsync, if one was started. One that ended badly stays stored.
  int waitRSyncServer() override;
  /// Runs the init script of every service with "stop", in order, whatever comes of
  /// it.
  int stopServices() override;
  int startRSyncServer2(boost::intrusive_ptr<QXL::QXLChannelEndPrototype> channel) override;
  int waitRSyncServer2() override;
  /// The quota dump of the root file system, also as the answer.
  int dumpQuota(std::string* text) override;
  /// Accepted and without effect.
  int shutdownSrcSrv() override;
  int destroySrcSrv() override;
  /// Bytes in use under "/" less those under the excluded paths, also as the answer.
  int getUsageDiskSpace(long long* bytes) override;

  /// Checks that the machine can send: Linux, the rsync program, the services.
  /// Completes the exclusion list, even when a check then fails.
  int init(boost::shared_ptr<QXL::QXLConnectionInfo> connection,
           boost::shared_ptr<QXL::QXLHaulSerializerBaseParams> params) override;
  /// Ends an rsync that still runs.
  int finish() override;

 private:
  std::unique_ptr<QXL::HWExec> rsync_;  ///< null when none was started
};

#endif
