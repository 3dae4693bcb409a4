// The source end on another machine: every stage is one request to the operator
// "qxlinmigrate_p2v_serializer" of its agent.
#ifndef QX_FRAME_SERIALIZER_AGENT_H
#define QX_FRAME_SERIALIZER_AGENT_H

#include <string>

#include "frame/stages.h"
#include "framework/haul.h"

/// Adds no errors of its own: a stage returns what the request returned, and the
/// text is where the framework put it. The variables given to stages that answer
/// must live until the stage returns.
class QXLinMigrateP2VSerializerAgent : public QXLinMigrateP2VSerializer,
                                       public QXL::QXLHaulSerializerBaseAgentPrototype {
 public:
  QXLinMigrateP2VSerializerAgent(
      const QXL::QXLEID& eid, const boost::intrusive_ptr<QXL::QXLAccessProviderPrototype>& access);
  ~QXLinMigrateP2VSerializerAgent() override;

  int startRSyncServer(boost::intrusive_ptr<QXL::QXLChannelEndPrototype> channel) override;
  int waitRSyncServer() override;
  int stopServices() override;
  int startRSyncServer2(boost::intrusive_ptr<QXL::QXLChannelEndPrototype> channel) override;
  int waitRSyncServer2() override;
  int dumpQuota(std::string* text) override;
  int shutdownSrcSrv() override;
  int destroySrcSrv() override;
  int getUsageDiskSpace(long long* bytes) override;

  int serializeParams(const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& params,
                      const boost::intrusive_ptr<QXL::QXLMessageIterator>& out) override;
  int deserializeParams(const boost::intrusive_ptr<QXL::QXLMessageIterator>& in,
                        const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& params) override;
};

#endif
