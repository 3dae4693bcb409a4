// Operators: the objects that answer requests, and the factories an agent finds
// by name in a plug-in.
#ifndef QX_FRAMEWORK_OPERATORS_H
#define QX_FRAMEWORK_OPERATORS_H

#include <boost/smart_ptr/shared_ptr.hpp>
#include <map>
#include <string>

#include "framework/channel.h"
#include "framework/haul.h"
#include "framework/message.h"

namespace QXL {

/// Answers requests: one operator serves one session, one request at a time.
class QXL_API QXLOperatorPrototype : public virtual QXLRefCounter {
 public:
  virtual void setID(const std::string& id) { id_ = id; }
  virtual void setNamespace(const std::string& name) { namespace_ = name; }
  const std::string& getID() const { return id_; }
  const std::string& getNamespace() const { return namespace_; }

  /// Serves one request: the method's name, its body, and the answer to fill.
  virtual void process(const std::string& method,
                       const boost::intrusive_ptr<QXLMessageIterator>& in,
                       const boost::intrusive_ptr<QXLMessageIterator>& out) = 0;

 private:
  std::string id_;
  std::string namespace_;
};

/// An operator whose methods stand in a table. A method that the table does not
/// have is answered with error 404, one whose handler is null with error 405.
class QXL_API QXLOperatorFunctionalPrototype : public QXLOperatorPrototype {
 public:
  typedef void (QXLOperatorFunctionalPrototype::*QXLOpHandler)(
      const boost::intrusive_ptr<QXLMessageIterator>& in,
      const boost::intrusive_ptr<QXLMessageIterator>& out);

  /// The handler, and two fields that the framework reserves: a plug-in sets 0.
  struct QXLOpMethodInfo {
    QXLOpHandler handler;
    long first;
    long second;
  };

  void process(const std::string& method, const boost::intrusive_ptr<QXLMessageIterator>& in,
               const boost::intrusive_ptr<QXLMessageIterator>& out) override;

  const std::map<std::string, QXLOpMethodInfo>& getMethods() const { return methods_; }

 protected:
  std::map<std::string, QXLOpMethodInfo> methods_;
};

/// An operator that drives one local worker through the stages of a migration.
/// Besides its table it answers "create" (makes the worker), "init" (decodes the
/// parameters and initialises the worker with them) and "finish" (ends it). A
/// stage is dispatched only to a worker that was initialised without error.
/// Services that a stage has stopped are started again by a "finish" that does
/// not say that the migration succeeded.
class QXL_API QXLHaulControlOperatorPrototype : public QXLOperatorFunctionalPrototype {
 public:
  QXLHaulControlOperatorPrototype();
  ~QXLHaulControlOperatorPrototype() override;

  /// A new parameters record with its defaults.
  virtual boost::shared_ptr<QXLHaulSerializerBaseParams> newParams() = 0;
  /// Fill a record from a message, and write one. Non-zero with the reason in
  /// QXL::getErrorMessage() when the message does not hold an acceptable record.
  virtual int deserializeParams(const boost::intrusive_ptr<QXLMessageIterator>& in,
                                const boost::shared_ptr<QXLHaulSerializerBaseParams>& params) = 0;
  virtual int serializeParams(const boost::shared_ptr<QXLHaulSerializerBaseParams>& params,
                              const boost::intrusive_ptr<QXLMessageIterator>& out) = 0;
  /// Makes the worker; null when that is not possible.
  virtual boost::intrusive_ptr<QXLHaulSerializerBasePrototype> createSerializer() = 0;

  void process(const std::string& method, const boost::intrusive_ptr<QXLMessageIterator>& in,
               const boost::intrusive_ptr<QXLMessageIterator>& out) override;

 protected:
  /// The worker; null before "create" and after "finish".
  const boost::intrusive_ptr<QXLHaulSerializerBasePrototype>& getHeldSerializer() const {
    return serializer_;
  }

  /// The channel end that a request brought with it; null when it brought none,
  /// with an error added to the answer.
  boost::intrusive_ptr<QXLChannelEndPrototype> getPhysHandle(
      const boost::intrusive_ptr<QXLMessageIterator>& in,
      const boost::intrusive_ptr<QXLMessageIterator>& out);

 private:
  void create(const boost::intrusive_ptr<QXLMessageIterator>& out);
  void init(const boost::intrusive_ptr<QXLMessageIterator>& in,
            const boost::intrusive_ptr<QXLMessageIterator>& out);
  void finish(const boost::intrusive_ptr<QXLMessageIterator>& in,
              const boost::intrusive_ptr<QXLMessageIterator>& out);
  void complete(int result, const boost::intrusive_ptr<QXLMessageIterator>& out);

  boost::intrusive_ptr<QXLHaulSerializerBasePrototype> serializer_;
  boost::shared_ptr<QXLHaulSerializerBaseParams> params_;  ///< kept when init succeeded
  bool initialised_ = false;
  bool servicesStopped_ = false;
};

}  // namespace QXL

#endif
