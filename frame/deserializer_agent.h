// The destination end behind an agent: every stage is one request to the operator
// "qxlinmigrate_p2v_deserializer" of that agent, which is usually this process.
#ifndef QX_FRAME_DESERIALIZER_AGENT_H
#define QX_FRAME_DESERIALIZER_AGENT_H

#include <string>

#include "frame/stages.h"
#include "framework/haul.h"

/// Adds no errors of its own: a stage returns what the request returned, and the
/// text is where the framework put it. The variable given to getFreeDiskSpace must
/// live until the stage returns.
class QXLinMigrateP2VDeserializerAgent : public QXLinMigrateP2VDeserializer,
                                         public QXL::QXLHaulSerializerBaseAgentPrototype {
 public:
  QXLinMigrateP2VDeserializerAgent(
      const QXL::QXLEID& eid, const boost::intrusive_ptr<QXL::QXLAccessProviderPrototype>& access);
  ~QXLinMigrateP2VDeserializerAgent() override;

  int lockVPS() override;
  int createDstSrv() override;
  int rSync(boost::intrusive_ptr<QXL::QXLChannelEndPrototype> channel) override;
  int rSync2(boost::intrusive_ptr<QXL::QXLChannelEndPrototype> channel) override;
  int restoreQuota(const std::string& text) override;
  int tuneDstSrv() override;
  int startDstSrv() override;
  int getFreeDiskSpace(long long* bytes) override;

  int serializeParams(const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& params,
                      const boost::intrusive_ptr<QXL::QXLMessageIterator>& out) override;
  int deserializeParams(const boost::intrusive_ptr<QXL::QXLMessageIterator>& in,
                        const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& params) override;
};

#endif
