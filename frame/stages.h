// The stages of a migration: what the two ends can be asked to do. Local workers
// implement them on the machine itself, remote proxies by a request to an agent.
//
// Every stage returns 0 on success; the reason of a failure is the last error of
// the request's context. A stage blocks its caller until it is done. One stage
// at a time per object.
#ifndef QX_FRAME_STAGES_H
#define QX_FRAME_STAGES_H

#include <string>

#include "framework/channel.h"
#include "framework/haul.h"

/// The end on the physical server, which sends.
class QXLinMigrateP2VSerializer : public virtual QXL::QXLHaulSerializerPrototype {
 public:
  /// Starts an rsync server on the channel end; returns once it runs.
  virtual int startRSyncServer(boost::intrusive_ptr<QXL::QXLChannelEndPrototype> channel) = 0;
  /// Waits for that rsync server to end and judges how it ended.
  virtual int waitRSyncServer() = 0;
  /// Stops the services that the parameters name.
  virtual int stopServices() = 0;
  /// The same pair for the second copy.
  virtual int startRSyncServer2(boost::intrusive_ptr<QXL::QXLChannelEndPrototype> channel) = 0;
  virtual int waitRSyncServer2() = 0;
  /// Gives the server's disk quotas as one text; untouched on failure.
  virtual int dumpQuota(std::string* text) = 0;
  /// The caller's own requests; no migration calls them.
  virtual int shutdownSrcSrv() = 0;
  virtual int destroySrcSrv() = 0;
  /// Gives the bytes that a copy will bring; untouched on failure.
  virtual int getUsageDiskSpace(long long* bytes) = 0;
};

/// The end on the hardware node, which receives.
class QXLinMigrateP2VDeserializer : public virtual QXL::QXLHaulDeserializerPrototype {
 public:
  /// Takes the lock of the container id.
  virtual int lockVPS() = 0;
  /// Makes the container, empty and mounted.
  virtual int createDstSrv() = 0;
  /// Fills the container through the channel end, first and second copy.
  virtual int rSync(boost::intrusive_ptr<QXL::QXLChannelEndPrototype> channel) = 0;
  virtual int rSync2(boost::intrusive_ptr<QXL::QXLChannelEndPrototype> channel) = 0;
  /// Applies the text of dumpQuota to the container.
  virtual int restoreQuota(const std::string& text) = 0;
  /// Adapts the copy to life in a container and completes the migration.
  virtual int tuneDstSrv() = 0;
  /// The caller's own request; no migration calls it.
  virtual int startDstSrv() = 0;
  /// Gives the bytes that the container's file system can hold; untouched on
  /// failure.
  virtual int getFreeDiskSpace(long long* bytes) = 0;
};

#endif
