// The factory kit, into which a plug-in registers what it implements.
#ifndef QX_FRAMEWORK_FUNCTIONALITY_H
#define QX_FRAMEWORK_FUNCTIONALITY_H

#include <boost/smart_ptr/shared_ptr.hpp>
#include <map>
#include <string>

#include "framework/access.h"
#include "framework/haul.h"
#include "framework/haul_control.h"

namespace QXL {

typedef boost::intrusive_ptr<QXLAccessProviderPrototype> QXLAccessProviderPtr;

/// Makes objects that work in this process.
template <class Pointer>
class QXL_API QXLFunctionalFactoryLocal {
 public:
  virtual ~QXLFunctionalFactoryLocal() = default;
  virtual Pointer create(const QXLAccessProviderPtr& access) const = 0;
};

template <class Pointer, class Implementation>
class QXLFunctionalFactoryLocalImpl : public QXLFunctionalFactoryLocal<Pointer> {
 public:
  Pointer create(const QXLAccessProviderPtr& access) const override {
    return Pointer(new Implementation(access));
  }
};

/// Makes objects that have an agent do the work.
template <class Pointer>
class QXL_API QXLFunctionalFactoryAgent {
 public:
  virtual ~QXLFunctionalFactoryAgent() = default;
  virtual Pointer create(const QXLEID& eid, const QXLAccessProviderPtr& access) const = 0;
};

template <class Pointer, class Implementation>
class QXLFunctionalFactoryAgentImpl : public QXLFunctionalFactoryAgent<Pointer> {
 public:
  Pointer create(const QXLEID& eid, const QXLAccessProviderPtr& access) const override {
    return Pointer(new Implementation(eid, access));
  }
};

typedef boost::shared_ptr<QXLHaulControl> QXLHaulControlPtr;
typedef boost::intrusive_ptr<QXLHaulSerializerPrototype> QXLHaulSerializerPtr;
typedef boost::intrusive_ptr<QXLHaulDeserializerPrototype> QXLHaulDeserializerPtr;

/// The factories of migrations, by implementation name. The maps are not guarded:
/// a plug-in fills them before the first request and empties them after the last.
class QXL_API QXLHaulControlFactory {
 public:
  QXLHaulControlFactory();
  ~QXLHaulControlFactory();

  /// Each returns null when nothing is registered under the name.
  QXLHaulControlPtr getMigrateP2VControl(const QXLAccessProviderPtr& access,
                                         const std::string& name) const;
  QXLHaulSerializerPtr getMigrateP2VSerializerLocal(const QXLAccessProviderPtr& access,
                                                    const std::string& name) const;
  QXLHaulSerializerPtr getMigrateP2VSerializerAgent(const QXLEID& eid,
                                                    const QXLAccessProviderPtr& access,
                                                    const std::string& name) const;
  QXLHaulDeserializerPtr getMigrateP2VDeserializerLocal(const QXLAccessProviderPtr& access,
                                                        const std::string& name) const;
  QXLHaulDeserializerPtr getMigrateP2VDeserializerAgent(const QXLEID& eid,
                                                        const QXLAccessProviderPtr& access,
                                                        const std::string& name) const;

  typedef std::map<std::string, boost::shared_ptr<QXLFunctionalFactoryLocal<QXLHaulControlPtr>>>
      Controls;
  typedef std::map<std::string, boost::shared_ptr<QXLFunctionalFactoryLocal<QXLHaulSerializerPtr>>>
      LocalSerializers;
  typedef std::map<std::string, boost::shared_ptr<QXLFunctionalFactoryAgent<QXLHaulSerializerPtr>>>
      AgentSerializers;
  typedef std::map<std::string,
                   boost::shared_ptr<QXLFunctionalFactoryLocal<QXLHaulDeserializerPtr>>>
      LocalDeserializers;
  typedef std::map<std::string,
                   boost::shared_ptr<QXLFunctionalFactoryAgent<QXLHaulDeserializerPtr>>>
      AgentDeserializers;

  Controls controls_;
  LocalSerializers localSerializers_;
  AgentSerializers agentSerializers_;
  LocalDeserializers localDeserializers_;
  AgentDeserializers agentDeserializers_;
};

/// One kit of each kind in the process.
template <class Kit>
class QXL_API QXLFunctionality {
 public:
  static Kit m_kit;
};

template <class Kit>
Kit QXLFunctionality<Kit>::m_kit;

}  // namespace QXL

#endif
