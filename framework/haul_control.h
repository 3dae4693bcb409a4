// The controller of one migration.
#ifndef QX_FRAMEWORK_HAUL_CONTROL_H
#define QX_FRAMEWORK_HAUL_CONTROL_H

#include <boost/smart_ptr/shared_ptr.hpp>
#include <functional>
#include <string>

#include "framework/channel.h"
#include "framework/haul.h"

namespace QXL {

/// The stages that make a copy: the sending end begins, the receiving end copies, the sending
/// end ends.
struct QXLCopyStages {
  const char* begin;
  const char* copy;
  const char* end;
};

/// Base of controllers. The framework calls execute; the plug-in's class says how
/// the two ends are made and in which order their stages run.
class QXL_API QXLHaulControl : public virtual QXLRequest {
 public:
  explicit QXLHaulControl(const boost::intrusive_ptr<QXLAccessProviderPrototype>& access);
  ~QXLHaulControl() override;

  virtual boost::intrusive_ptr<QXLHaulSerializerPrototype> createSerializer() = 0;
  virtual boost::intrusive_ptr<QXLHaulDeserializerPrototype> createDeserializer() = 0;
  /// Runs the stages. Returns 0, or -1 with the reason in the context.
  virtual int process() = 0;

  /// Makes both ends, initialises them with the parameters, makes the connector,
  /// calls process, and finishes both ends whatever happened.
  /// Returns 0 or non-zero with the reason in the context.
  int execute(const boost::shared_ptr<QXLConnectionInfo>& connection,
              const boost::shared_ptr<QXLHaulSerializerBaseParams>& params);

  /// To be set before execute: hears of the sending end's stages.
  void setWatch(const QXLStageWatch& watch) { watch_ = watch; }
  /// To be set before execute: asked when a migration has succeeded so far and the receiving
  /// end has finished, before the sending end is told so. Non-zero, with the reason in the
  /// context: that end is told that it has failed, and so is the caller.
  void setConclusion(const std::function<int()>& conclusion) { conclusion_ = conclusion; }
  /// For the watch: makes a copy once more, over a new channel. Returns 0, or non-zero with the
  /// reason in the context. The watch does not hear of these stages.
  int copyAgain(const QXLCopyStages& stages);

 protected:
  boost::intrusive_ptr<QXLHaulSerializerPrototype> serializer_;
  boost::intrusive_ptr<QXLHaulDeserializerPrototype> deserializer_;
  boost::shared_ptr<QXLConnectionInfo> connectionInfo_;
  boost::shared_ptr<QXLChannelSettings> channelSettings_;
  boost::shared_ptr<QXLHaulConnector> connector_;

 private:
  int prepareEnds(const boost::shared_ptr<QXLHaulSerializerBaseParams>& params);
  int finishEnds(bool succeeded);

  QXLStageWatch watch_;
  std::function<int()> conclusion_;
};

}  // namespace QXL

#endif
