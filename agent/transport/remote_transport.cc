#include "agent/transport/remote_transport.h"

#include <chrono>
#include <future>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "agent/system/last_error.h"
#include "agent/transport/request.h"
#include "agent/wire/channels.h"
#include "agent/wire/protocol.h"
#include "agent/wire/request_context.h"
#include "agent/wire/steps.h"

namespace agent {

namespace {
constexpr std::chrono::seconds kGreetingTimeout(30);
}

RemoteTransport::RemoteTransport(host::Fd input, host::Fd output, const std::string& peer,
                                 const HeartbeatTimes& times)
    : peer_(peer), connection_(std::move(input), std::move(output), times), caller_(connection_) {
  if (const CurrentRequest* request = CurrentRequest::get()) cancelOnLoss_ = request->cancel;
  const auto greeting = std::make_shared<std::promise<std::string>>();
  std::future<std::string> greeted = greeting->get_future();
  // Touched by the connection's thread only.
  const auto waiting = std::make_shared<bool>(true);
  connection_.start(
      [this, greeting, waiting](const nlohmann::json& frame, const std::vector<host::Fd>&) {
        if (*waiting) {
          checkHello(frame);
          *waiting = false;
          greeting->set_value(textOf(frame, "eid"));
        } else {
          caller_.onFrame(frame);
        }
      },
      [this, greeting, waiting](const std::string& reason) {
        const std::string why = peer_ + (reason.empty() ? " has closed it" : ": " + reason);
        if (*waiting) {
          *waiting = false;
          greeting->set_exception(
              std::make_exception_ptr(std::runtime_error("no agent answers at " + why)));
          return;
        }
        caller_.onLost(why);
        if (cancelOnLoss_) cancelOnLoss_->cancel(kConnectionLost, ": " + why);
      });
  connection_.send(hello());
  try {
    if (greeted.wait_for(kGreetingTimeout) != std::future_status::ready) {
      throw std::runtime_error("no agent answers at " + peer_);
    }
    eid_ = QXL::QXLEID(greeted.get());
  } catch (...) {
    connection_.stop();
    throw;
  }
}

// The connection's thread uses the other members.
RemoteTransport::~RemoteTransport() { disconnect(); }

void RemoteTransport::disconnect() {
  // Leaving is no loss.
  cancelOnLoss_.reset();
  connection_.stop();
}

int RemoteTransport::call(const Request& request, nlohmann::json& answer,
                          QXL::QXLProgressHandlerPrototype* handler, CancelToken* cancel) {
  const Step& step = stepOf(request.method);
  const RequestLimits limits{step.longest, step.frameBytes, cancelOnLoss_.get()};
  // The connection is used by one thread at a time, but for the beat.
  connection_.expectFramesOf(limits.frameBytes);
  const int result = caller_.call(request, answer, handler, cancel, limits);
  connection_.expectFramesOf(kUsualFrameBytes);
  return result;
}

boost::intrusive_ptr<QXL::QXLChannelPrototype> RemoteTransport::createChannel(
    const QXL::QXLChannelSettings& settings) {
  const ChannelPair pair = makeSocketChannelPair(settings.pipeBytes);
  if (!pair.first) return nullptr;
  const std::string token = newToken();
  if (!connection_.send({{"type", "channel"}, {"token", token}},
                        {pair.second->getInputFd(), pair.second->getOutputFd()})) {
    fail("a data channel could not be handed to the agent at " + peer_);
    return nullptr;
  }
  return boost::intrusive_ptr<QXL::QXLChannelPrototype>(new Channel(
      pair.first, boost::intrusive_ptr<QXL::QXLChannelEndPrototype>(new TokenChannelEnd(token))));
}

std::string RemoteTransport::handOver(const boost::intrusive_ptr<QXL::QXLChannelEndPrototype>&) {
  fail("an end of this process cannot go to the agent at " + peer_);
  return "";
}

}  // namespace agent
