// The worker on the hardware node.
#ifndef QX_MIGRATE_DESERIALIZER_SYS_H
#define QX_MIGRATE_DESERIALIZER_SYS_H

#include <string>

#include "frame/stages.h"
#include "framework/haul.h"
#include "framework/migrate_params.h"

namespace P2V {
class Stage;
}

/// Runs the destination's stages. The framework calls init first, then the stages
/// one at a time, finish last. Unless said otherwise an operation checks the
/// caller's right (refused with code 414), and returns 0 or the error it recorded
/// in the request's context.
class DRAHN2VPSMigrateDeserializerSys : public QXLinMigrateP2VDeserializer,
                                        public QXL::QXLHaulSerializerBaseLocalPrototype {
 public:
  explicit DRAHN2VPSMigrateDeserializerSys(
      boost::intrusive_ptr<QXL::QXLAccessProviderPrototype> access);
  ~DRAHN2VPSMigrateDeserializerSys() override;

  /// Takes the lock of the container id.
  int lockVPS() override;
  /// Makes a new container, or takes back what a failed migration kept, writes its
  /// configuration and mounts it. Once the private area is decided on, a failure
  /// leaves it to finish to remove.
  int createDstSrv() override;
  /// Runs the rsync client on the channel's descriptors until the container's root
  /// has what the server has, reporting progress meanwhile.
  int rSync(boost::intrusive_ptr<QXL::QXLChannelEndPrototype> channel) override;
  int rSync2(boost::intrusive_ptr<QXL::QXLChannelEndPrototype> channel) override;
  /// Applies a quota dump.
  int restoreQuota(const std::string& dump) override;
  /// Runs the distribution's post-migration script; then the migration is complete.
  int tuneDstSrv() override;
  /// Begins a command and returns 0. Checks no right, ends no command and starts
  /// nothing: callers that start the container do it themselves and count on this
  /// one always succeeding, so it must stay.
  int startDstSrv() override;
  /// Bytes that the file system of the container's root can hold, also as the
  /// answer.
  int getFreeDiskSpace(long long* bytes) override;

  /// Completes the exclusion list; refuses a distribution that cannot be adapted,
  /// before anything is made.
  int init(boost::shared_ptr<QXL::QXLConnectionInfo> connection,
           boost::shared_ptr<QXL::QXLHaulSerializerBaseParams> params) override;

  /// Completes a migration or rolls it back, by how far it came:
  ///   no lock          unmounts, no more: the container may be another's
  ///   no container     unmounts, unlocks
  ///   tuned            unmounts, converts, unlocks
  ///   otherwise        unmounts, destroys (or keeps the private area aside when the
  ///                    parameters say so), unlocks
  /// The commands it runs never fail it.
  int finish() override;

 private:
  /// Each step of createDstSrv. A step that fails has recorded its error.
  bool checkConfig(P2V::Stage& stage, const QXA::QXAMigrateP2VSerializerParams& params) const;
  bool setDefaultPaths(P2V::Stage& stage, QXA::QXAEnvConfig& config) const;
  bool assignAddresses(P2V::Stage& stage, QXA::QXAEnvConfig& config) const;

  void rollBack(const QXA::QXAMigrateP2VSerializerParams& params) const;

  /// Forwards a changed percent of one chunk of rsync's output, not too often.
  void reportProgress(char* line) const;
  void reportRsyncProcent(int percent) const;

  bool locked_ = false;   ///< this worker holds the lock
  bool created_ = false;  ///< there is a container to remove on failure
  bool tuned_ = false;    ///< the migration is complete: keep the container
};

#endif
