// Operator factories, the objects that a plug-in exports by symbol name.
#ifndef QX_FRAMEWORK_OP_FACTORY_H
#define QX_FRAMEWORK_OP_FACTORY_H

#include <string>

#include "framework/operators.h"

namespace QXL {

/// Grants one session the use of its operator.
class QXL_API QXLAccesserPrototype : public virtual QXLRefCounter {
 public:
  /// Takes a place for the operator. Returns 0, or non-zero with the reason in
  /// QXL::getErrorMessage() when there is none.
  virtual int acquire() = 0;
  /// The operator; usable after a good acquire.
  virtual boost::intrusive_ptr<QXLOperatorPrototype> getOperator() const = 0;
  /// How many requests of the session may wait while one is served.
  virtual int maxQueued() const = 0;
};

/// Makes operators of one kind.
class QXL_API QXLOpFactory : public virtual QXLRefCounter {
 public:
  /// flags: 0, nothing else is defined.
  QXLOpFactory(const std::string& name, int flags);
  ~QXLOpFactory() override;

  const std::string& getName() const { return name_; }
  virtual boost::intrusive_ptr<QXLOperatorPrototype> newOperator() = 0;
  virtual boost::intrusive_ptr<QXLAccesserPrototype> newAccesser(
      const boost::intrusive_ptr<QXLOperatorPrototype>& op) = 0;

 private:
  std::string name_;
  int flags_;
};

/// The pooled accessor. The operators of one factory share a pool:
/// waitSeconds  how long acquire waits for a free place
/// maxOperators how many operators may be in use at one time
/// maxQueued    how many requests of one session may wait
class QXL_API QXLAccesserPoolPrototype : public QXLAccesserPrototype {
 public:
  QXLAccesserPoolPrototype(const boost::intrusive_ptr<QXLOperatorPrototype>& op,
                           QXLOpFactory* factory, int waitSeconds, int maxOperators, int maxQueued);
  ~QXLAccesserPoolPrototype() override;

  int acquire() override;
  boost::intrusive_ptr<QXLOperatorPrototype> getOperator() const override;
  int maxQueued() const override;

 private:
  boost::intrusive_ptr<QXLOperatorPrototype> operator_;
  std::string pool_;
  int waitSeconds_;
  int maxOperators_;
  int maxQueued_;
  bool acquired_ = false;
};

/// The factory of an operator class. ownSession says that every session has an
/// operator of its own.
template <class Operator, class Parameter, int waitSeconds, int maxOperators, int maxQueued,
          bool ownSession>
class QXLOperatorFactory : public QXLOpFactory {
 public:
  QXLOperatorFactory(const char* name, Parameter parameter, int flags)
      : QXLOpFactory(name, flags), parameter_(parameter) {}

  boost::intrusive_ptr<QXLOperatorPrototype> newOperator() override {
    boost::intrusive_ptr<QXLOperatorPrototype> op(new Operator());
    op->setID(getName());
    op->setNamespace(parameter_);
    return op;
  }

  boost::intrusive_ptr<QXLAccesserPrototype> newAccesser(
      const boost::intrusive_ptr<QXLOperatorPrototype>& op) override {
    return boost::intrusive_ptr<QXLAccesserPrototype>(
        new QXLAccesserPoolPrototype(op, this, waitSeconds, maxOperators, maxQueued));
  }

 private:
  Parameter parameter_;
};

template <class Operator, int waitSeconds, int maxOperators, int maxQueued, bool ownSession,
          class Parameter>
boost::intrusive_ptr<QXLOpFactory> newOperatorFactory(const char* name, Parameter parameter,
                                                      int flags) {
  return boost::intrusive_ptr<QXLOpFactory>(
      new QXLOperatorFactory<Operator, Parameter, waitSeconds, maxOperators, maxQueued, ownSession>(
          name, parameter, flags));
}

}  // namespace QXL

#endif
