#include "agent/wire/dispatcher.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "agent/wire/message.h"
#include "agent/wire/message_fields.h"
#include "agent/wire/operator_registry.h"
#include "framework/errors.h"

namespace agent {

void Dispatcher::onFrame(const nlohmann::json& frame, std::vector<host::Fd> fds) {
  const std::string type = textOf(frame, "type");
  if (type == "request") return request(frame);
  if (type == "cancel") {
    const long long id = numberOf(frame, "id");
    for (auto& [name, session] : sessions_) session->cancel(id);
    return;
  }
  if (type != "channel") throw std::runtime_error("a frame has the unknown type '" + type + "'");
  if (fds.size() != 2) throw std::runtime_error("a channel came without its two descriptors");
  channels_.put(textOf(frame, "token"),
                boost::intrusive_ptr<QXL::QXLChannelEndPrototype>(
                    new LocalChannelEnd(std::move(fds[0]), std::move(fds[1]))));
}

void Dispatcher::request(const nlohmann::json& frame) {
  const long long id = numberOf(frame, "id");
  const std::string name = textOf(frame, "session");
  const std::string operatorName = textOf(frame, "operator");
  const std::string method = textOf(frame, "method");
  const auto body = frame.find("body");
  if (id < 1 || body == frame.end()) throw std::runtime_error("a request is incomplete");
  Message::check(*body);

  std::erase_if(sessions_, [](const auto& entry) { return entry.second->finished(); });
  auto session = sessions_.find(name);
  if (session == sessions_.end()) {
    if (method == kMethodFinish) {
      // Ending what has ended is no error.
      sink_.send({{"type", "answer"}, {"id", id}, {"body", nlohmann::json::object()}});
      return;
    }
    if (method != kMethodCreate) return refuse(id, 409, "'" + method + "' without a session");
    const auto factory = OperatorRegistry::instance().find(operatorName);
    if (!factory) return refuse(id, 404, operatorName);
    session = sessions_.emplace(name, std::make_unique<Session>(factory, sink_, channels_, client_))
                  .first;
  }
  if (!session->second->submit(id, method, *body)) {
    refuse(id, 429, "too many requests of the session wait");
  }
}

void Dispatcher::refuse(long long id, int code, const std::string& argument) {
  boost::intrusive_ptr<Message> out(new Message());
  QXL::addError(out, QXL::QXLErrors, code, argument);
  sink_.send({{"type", "answer"}, {"id", id}, {"body", out->body()}});
}

void Dispatcher::end() { sessions_.clear(); }

}  // namespace agent
