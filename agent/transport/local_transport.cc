#include "agent/transport/local_transport.h"
#include "agent/transport/request.h"

#include <nlohmann/json.hpp>

#include "framework/access.h"

namespace agent {

namespace {

// What a frame would be after its journey.
nlohmann::json travelled(const nlohmann::json& frame) {
  return parseFrame(std::string_view(encodeFrame(frame)).substr(4));
}

}  // namespace

bool LocalTransport::ToDispatcher::send(const nlohmann::json& frame, const std::vector<int>&) {
  std::lock_guard lock(mutex_);
  owner_.dispatcher_.onFrame(travelled(frame), {});
  return true;
}

bool LocalTransport::ToCaller::send(const nlohmann::json& frame, const std::vector<int>&) {
  owner_.caller_.onFrame(travelled(frame));
  return true;
}

LocalTransport::LocalTransport()
    : toDispatcher_(*this),
      toCaller_(*this),
      caller_(toDispatcher_),
      dispatcher_(toCaller_, QXL::QXLAccessChecker::getClientContext()) {}

int LocalTransport::call(const Request& request, nlohmann::json& answer,
                         QXL::QXLProgressHandlerPrototype* handler, CancelToken* cancel) {
  return caller_.call(request, answer, handler, cancel);
}

boost::intrusive_ptr<QXL::QXLChannelPrototype> LocalTransport::createChannel(
    const QXL::QXLChannelSettings& settings) {
  const ChannelPair pair = makeSocketChannelPair(settings.pipeBytes);
  if (!pair.first) return nullptr;
  return boost::intrusive_ptr<QXL::QXLChannelPrototype>(
      new Channel(pair.first, boost::intrusive_ptr<QXL::QXLChannelEndPrototype>(
                                  new TokenChannelEnd(handOver(pair.second)))));
}

std::string LocalTransport::handOver(const boost::intrusive_ptr<QXL::QXLChannelEndPrototype>& end) {
  std::string token = newToken();
  dispatcher_.channels().put(token, end);
  return token;
}

void LocalTransport::disconnect() {
  caller_.onLost("");
  dispatcher_.end();
}

QXL::QXLEID LocalTransport::eid() const { return QXL::QXLConfiguration::getLocalEID(); }

}  // namespace agent
