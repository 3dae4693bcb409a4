#include "agent/transport/ssh_transport.h"

#include <stdexcept>

#include "agent/wire/channels.h"
#include "agent/wire/request_context.h"
#include "framework/errors.h"

namespace agent {

SshTransport::SshTransport(std::unique_ptr<SshSession> session, const std::string& peer)
    : RemoteTransport(session->takeInput(), session->takeOutput(), peer),
      session_(std::move(session)) {}

SshTransport::~SshTransport() {
  disconnect();
  if (peerWasSilent()) session_->abandon();
  session_.reset();
}

boost::intrusive_ptr<QXL::QXLChannelPrototype> SshTransport::createChannel(
    const QXL::QXLChannelSettings& settings) {
  const std::string token = newToken();
  const CurrentRequest* request = CurrentRequest::get();
  boost::intrusive_ptr<LocalChannelEnd> end =
      session_->openChannel(token, settings.pipeBytes, request ? request->cancel.get() : nullptr);
  if (!end) return nullptr;
  return boost::intrusive_ptr<QXL::QXLChannelPrototype>(new Channel(
      end, boost::intrusive_ptr<QXL::QXLChannelEndPrototype>(new TokenChannelEnd(token))));
}

boost::shared_ptr<QXL::QXLRequestTransport> connectSsh(const std::string& address,
                                                       const std::vector<std::string>& options,
                                                       QXL::QXLProgressHandlerPrototype* handler) {
  const SshAddress parsed = parseSshAddress(address);
  const Bundle bundle = findBundle();
  auto session = std::make_unique<SshSession>(parsed, options);
  const CurrentRequest* request = CurrentRequest::get();
  session->start(bundle, handler, request ? request->cancel.get() : nullptr);
  return boost::shared_ptr<QXL::QXLRequestTransport>(
      new SshTransport(std::move(session), parsed.target()));
}

}  // namespace agent
