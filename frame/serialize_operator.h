// The operator "qxlinmigrate_p2v_serializer": serves the source's stages.
#ifndef QX_FRAME_SERIALIZE_OPERATOR_H
#define QX_FRAME_SERIALIZE_OPERATOR_H

#include "frame/stages.h"
#include "framework/operators.h"

/// Looks a stage's name up in its table and calls the worker's method of that name.
/// The framework makes one operator per session and dispatches stages only to an
/// initialised worker. Stages report their own results: handlers return nothing and
/// drop the value that a stage hands them, because the worker has already put it
/// into the answer and it must not be there twice.
class QXLinMigrateP2VSerializeOperator : public QXL::QXLHaulControlOperatorPrototype {
 public:
  QXLinMigrateP2VSerializeOperator();
  ~QXLinMigrateP2VSerializeOperator() override;

  boost::shared_ptr<QXL::QXLHaulSerializerBaseParams> newParams() override;
  int deserializeParams(const boost::intrusive_ptr<QXL::QXLMessageIterator>& in,
                        const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& params) override;
  int serializeParams(const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& params,
                      const boost::intrusive_ptr<QXL::QXLMessageIterator>& out) override;
  /// The local worker that the factory kit has under the empty name.
  boost::intrusive_ptr<QXL::QXLHaulSerializerBasePrototype> createSerializer() override;

  /// The worker that the framework holds; null when it holds none.
  boost::intrusive_ptr<QXLinMigrateP2VSerializer> getSerializer() const;

 private:
  typedef boost::intrusive_ptr<QXL::QXLMessageIterator> Message;

  /// Handlers of the stages that need nothing, and of those that need a channel.
  template <auto stage>
  void plain(const Message& in, const Message& out);
  template <auto stage>
  void withChannel(const Message& in, const Message& out);
  void dumpQuota(const Message& in, const Message& out);
  void getUsageDiskSpace(const Message& in, const Message& out);
};

#endif
