#include "framework/haul_control.h"

#include "agent/system/last_error.h"
#include "agent/transport/transport.h"
#include "framework/errors.h"

namespace {

class TransportConnector : public QXL::QXLHaulConnector {
 public:
  explicit TransportConnector(boost::shared_ptr<QXL::QXLRequestTransport> transport)
      : transport_(std::move(transport)) {}
  boost::intrusive_ptr<QXL::QXLChannelPrototype> createChannel(
      const boost::shared_ptr<QXL::QXLChannelSettings>& settings) override {
    return transport_->createChannel(settings ? *settings : QXL::QXLChannelSettings());
  }

 private:
  boost::shared_ptr<QXL::QXLRequestTransport> transport_;
};

}  // namespace

namespace QXL {

QXLHaulControl::QXLHaulControl(const boost::intrusive_ptr<QXLAccessProviderPrototype>& access)
    : m_channelSettings(new QXLChannelSettings()) {
  setAccessProvider(access);
}

QXLHaulControl::~QXLHaulControl() = default;

int QXLHaulControl::execute(const boost::shared_ptr<QXLConnectionInfo>& connection,
                            const boost::shared_ptr<QXLHaulSerializerBaseParams>& params) {
  m_connectionInfo = connection;
  int result = prepareEnds(params);
  if (result == 0) {
    result = process();
    if (result != 0 && getContext()->getLastErrorCode() == 0) {
      getContext()->setLastError(-1, getErrorMessage());
    }
  }
  const int finished = finishEnds(result == 0);
  return result != 0 ? result : finished;
}

int QXLHaulControl::prepareEnds(const boost::shared_ptr<QXLHaulSerializerBaseParams>& params) {
  m_serializer = createSerializer();
  if (!m_serializer) {
    if (getContext()->getLastErrorCode() == 0) {
      getContext()->setLastError(-1, "no agent to migrate from was named");
    }
    return -1;
  }
  m_deserializer = createDeserializer();
  if (!m_deserializer) {
    getContext()->setLastError(-1, "this agent cannot receive a migration");
    return -1;
  }
  m_serializer->sync(getProgressHandler(), "");
  if (m_serializer->init(m_connectionInfo, params) != 0) return -1;
  m_deserializer->sync(getProgressHandler(), "");
  if (m_deserializer->init(m_connectionInfo, params) != 0) return -1;

  const auto* proxy = dynamic_cast<const QXLHaulSerializerBaseAgentPrototype*>(m_serializer.get());
  if (proxy) {
    m_connector.reset(new TransportConnector(proxy->getTransport()));
  }
  return 0;
}

// The receiving end goes first: it rolls back while the source still is quiet.
int QXLHaulControl::finishEnds(bool succeeded) {
  const int code = getContext()->getLastErrorCode();
  const std::string text = getContext()->getLastErrorText();
  int result = 0;
  const auto finishEnd = [&](QXLHaulSerializerBasePrototype* end) {
    if (!end) return;
    if (auto* proxy = dynamic_cast<QXLHaulSerializerBaseAgentPrototype*>(end)) {
      proxy->setSucceeded(succeeded);
    }
    end->sync(getProgressHandler(), "");
    if (end->finish() != 0) result = -1;
  };
  finishEnd(m_deserializer.get());
  finishEnd(m_serializer.get());
  // The reason of the failure stands, whatever ending brought up.
  if (!succeeded) getContext()->setLastError(code, text);
  m_deserializer.reset();
  m_serializer.reset();
  m_connector.reset();
  return result;
}

}  // namespace QXL
