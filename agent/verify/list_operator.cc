#include "agent/verify/list_operator.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <exception>
#include <mutex>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>

#include "agent/framework/access.h"
#include "agent/system/event.h"
#include "agent/transport/operator_client.h"
#include "agent/verify/compare_lists.h"
#include "agent/verify/tree_list.h"
#include "agent/wire/bounded_json.h"
#include "agent/wire/channels.h"
#include "agent/wire/message.h"
#include "agent/wire/message_fields.h"
#include "agent/wire/operator_registry.h"
#include "agent/wire/request_context.h"
#include "framework/errors.h"
#include "host/file.h"

namespace agent {

namespace {

using Iterator = boost::intrusive_ptr<QXL::QXLMessageIterator>;

constexpr size_t kLongestEdits = 4 << 20;

class ListOperator : public QXL::QXLOperatorFunctionalPrototype {
 public:
  ListOperator() {
    const auto add = [this](const char* name,
                            void (ListOperator::*handler)(const Iterator&, const Iterator&)) {
      methods_[name] = {static_cast<QXLOpHandler>(handler), 0, 0};
    };
    add(kMethodCreate, &ListOperator::nothing);
    add(kMethodFinish, &ListOperator::nothing);
    add(kMethodList, &ListOperator::list);
  }

 private:
  // There is no worker to make or to end.
  void nothing(const Iterator&, const Iterator&) {}

  void list(const Iterator& in, const Iterator& out) {
    if (!mayMigrate(out)) return;
    const CurrentRequest* current = CurrentRequest::get();
    std::string token, excludes;
    if (in->getValueBase64(token, kFieldChannel) != 0 || !current || !current->channels) {
      return QXL::addError(out, QXL::QXLErrors, 400, "channel required");
    }
    const auto end = current->channels->take(token);
    if (!end) {
      return QXL::addError(out, QXL::QXLErrors, 400, "no channel waits under '" + token + "'");
    }
    try {
      if (in->getValueBase64(excludes, kFieldExcludes) != 0) {
        throw std::runtime_error("no exclusions came");
      }
      const auto patterns = parseBounded(excludes).get<std::vector<std::string>>();
      const auto stopped = [&] { return current->cancel && current->cancel->isCancelled(); };
      listTree("/", rulesFor(patterns), end->getOutputFd(), stopped);
    } catch (const std::exception& problem) {
      out->putError(-1, problem.what());
    }
    // The reader gets its end, whoever else holds the socket.
    shutdown(end->getOutputFd(), SHUT_WR);
  }
};

/// What went wrong first, of several threads; the others' troubles come of it.
class FirstProblem {
 public:
  /// Runs a function and keeps what it throws. False when it has thrown.
  template <class Function>
  bool guard(Function function) {
    try {
      function();
      return true;
    } catch (...) {
      const std::lock_guard lock(mutex_);
      if (!problem_) problem_ = std::current_exception();
      return false;
    }
  }
  void rethrow() const {
    if (problem_) std::rethrow_exception(problem_);
  }

 private:
  std::mutex mutex_;
  std::exception_ptr problem_;
};

Edits editsOf(const std::string& tree) {
  const host::Fd root(open(tree.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  return Edits(root ? host::readFileInRoot(root.get(), kEditsPath, kLongestEdits) : "");
}

/// Asks for the list; it comes through the channel. Throws the server's reason.
void askForList(QXL::QXLRequestTransport& transport, const std::string& token,
                const std::vector<std::string>& excludes, CancelToken& cancel) {
  Message list;
  list.putValueBase64(token, kFieldChannel);
  list.putValueBase64(nlohmann::json(excludes).dump(), kFieldExcludes);
  OperatorClient(transport, kListOperator, nullptr, &cancel).ask(kMethodList, list);
}

}  // namespace

void registerListOperator() {
  OperatorRegistry::instance().add(
      QXL::newOperatorFactory<ListOperator, 10, 20, 4, true>(kListOperator, "", 0));
}

TreeComparison compareWithServer(QXL::QXLRequestTransport& transport, const CompareRequest& request,
                                 CancelToken& cancel) {
  const engine::Rules rules = rulesFor(request.excludes);
  const auto channel = transport.createChannel(QXL::QXLChannelSettings());
  if (!channel) throw std::runtime_error(QXL::getErrorMessage());
  const auto far = boost::dynamic_pointer_cast<TokenChannelEnd>(channel->getSerializerEnd());
  if (!far) throw std::runtime_error("the connection has no channel for a list");
  const auto near = channel->getDeserializerEnd();
  ChannelPair own = makeChannelPair(0);
  if (!own.first) throw std::runtime_error(QXL::getErrorMessage());

  TreeComparison comparison;
  FirstProblem problem;
  CancelToken stop;  // all three
  const host::Fd over = newEvent();
  std::thread relay([&] {
    pollfd entries[2] = {{cancel.fd(), POLLIN, 0}, {over.get(), POLLIN, 0}};
    while (poll(entries, 2, -1) < 0) {
    }
    if (entries[0].revents) stop.cancel(cancel.code(), cancel.argument());
  });
  std::thread ownList([&] {
    const bool whole = problem.guard([&] {
      listTree(request.tree, rules, own.second->getOutputFd(), [&] { return stop.isCancelled(); });
    });
    if (!whole) stop.cancel();
  });
  std::atomic<bool> answered{false};
  std::thread reading([&] {
    const bool whole = problem.guard([&] {
      ListReader server(near->getInputFd(), stop.fd(), &answered, "the server's list");
      ListReader container(own.first->getInputFd(), stop.fd(), nullptr, "the container's list");
      Moments moments = request.moments;
      const std::int64_t ahead = server.clock() - time(nullptr);
      container.clock();
      if (moments.copied != Moments::kNever) moments.copied += ahead;
      comparison = compareLists(server, container, {editsOf(request.tree), moments});
    });
    // Who writes to nobody ends.
    if (!whole) stop.cancel();
    own.first.reset();
  });
  const bool asked =
      problem.guard([&] { askForList(transport, far->token(), request.excludes, stop); });
  answered = true;
  if (!asked) stop.cancel();
  reading.join();
  ownList.join();
  raiseEvent(over);
  relay.join();
  problem.rethrow();
  return comparison;
}

}  // namespace agent
