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
    : channelSettings_(new QXLChannelSettings()) {
  setAccessProvider(access);
}

QXLHaulControl::~QXLHaulControl() = default;

int QXLHaulControl::execute(const boost::shared_ptr<QXLConnectionInfo>& connection,
                            const boost::shared_ptr<QXLHaulSerializerBaseParams>& params) {
  connectionInfo_ = connection;
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
  serializer_ = createSerializer();
  if (!serializer_) {
    if (getContext()->getLastErrorCode() == 0) {
      getContext()->setLastError(-1, "no agent to migrate from was named");
    }
    return -1;
  }
  deserializer_ = createDeserializer();
  if (!deserializer_) {
    getContext()->setLastError(-1, "this agent cannot receive a migration");
    return -1;
  }
  serializer_->sync(getProgressHandler(), "");
  if (serializer_->init(connectionInfo_, params) != 0) return -1;
  deserializer_->sync(getProgressHandler(), "");
  if (deserializer_->init(connectionInfo_, params) != 0) return -1;

  auto* proxy = dynamic_cast<QXLHaulSerializerBaseAgentPrototype*>(serializer_.get());
  if (proxy) {
    proxy->setWatch(watch_);
    connector_.reset(new TransportConnector(proxy->getTransport()));
  }
  return 0;
}

int QXLHaulControl::copyAgain(const QXLCopyStages& stages) {
  auto* source = dynamic_cast<QXLHaulSerializerBaseAgentPrototype*>(serializer_.get());
  auto* destination = dynamic_cast<QXLHaulSerializerBaseAgentPrototype*>(deserializer_.get());
  const auto channel =
      source && destination && connector_ ? connector_->createChannel(channelSettings_) : nullptr;
  if (!channel) {
    getContext()->setLastError(-1, getErrorMessage());
    return -1;
  }
  source->sync(getProgressHandler(), "");
  if (int result = source->callStageWithHandle(stages.begin, channel->getSerializerEnd())) {
    return result;
  }
  destination->sync(getProgressHandler(), "");
  if (int result = destination->callStageWithHandle(stages.copy, channel->getDeserializerEnd())) {
    return result;
  }
  source->sync(getProgressHandler(), "");
  source->beginStage(stages.end);
  return source->endStage();
}

// The receiving end goes first: it rolls back while the source still is quiet.
int QXLHaulControl::finishEnds(bool succeeded) {
  int code = getContext()->getLastErrorCode();
  std::string text = getContext()->getLastErrorText();
  int result = 0;
  const auto finishEnd = [&](QXLHaulSerializerBasePrototype* end) {
    if (!end) return;
    if (auto* proxy = dynamic_cast<QXLHaulSerializerBaseAgentPrototype*>(end)) {
      proxy->setSucceeded(succeeded);
    }
    end->sync(getProgressHandler(), "");
    if (end->finish() != 0) result = -1;
  };
  finishEnd(deserializer_.get());
  if (succeeded && result == 0 && conclusion_ && conclusion_() != 0) {
    succeeded = false;
    result = -1;
    code = getContext()->getLastErrorCode();
    text = getContext()->getLastErrorText();
  }
  finishEnd(serializer_.get());
  // The reason of the failure stands, whatever ending brought up.
  if (!succeeded) getContext()->setLastError(code, text);
  deserializer_.reset();
  serializer_.reset();
  connector_.reset();
  return result;
}

}  // namespace QXL
