// Two agents and a UNIX socket between them.

#include "agent/transport/remote_transport.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <nlohmann/json.hpp>
#include <thread>

#include "agent/framework/access.h"
#include "agent/system/event.h"
#include "agent/transport/connect.h"
#include "agent/wire/message_fields.h"
#include "agent/wire/server.h"
#include "framework/errors.h"
#include "recorder.h"
#include "support/temp_tree.h"
#include "toy_operator.h"

namespace {

using namespace std::chrono_literals;

// A serving agent on a thread of its own.
class RemoteTest : public testing::Test {
 protected:
  RemoteTest()
      : path_(tree_.path("agent.sock")),
        server_(std::make_unique<agent::Server>(path_)),
        stop_(agent::newEvent()),
        thread_([this]() { server_->run(stop_.get()); }) {}
  ~RemoteTest() override { stop(); }
  void stop() {
    agent::raiseEvent(stop_);
    if (thread_.joinable()) thread_.join();
    server_.reset();
  }

  toy::Registration registration_;
  test_support::TempTree tree_;
  std::string path_;
  std::unique_ptr<agent::Server> server_;
  host::Fd stop_;
  std::thread thread_;
};

TEST_F(RemoteTest, StagesProgressAndAnswersCrossTheSocket) {
  const auto transport = agent::connect({"unix:" + path_, {}}, nullptr);
  ASSERT_TRUE(transport) << QXL::getErrorMessage();
  const std::string session = toy::open(*transport);
  boost::intrusive_ptr<toy::Recorder> recorder(new toy::Recorder());
  const std::string large(700000, '\xff');
  const toy::Outcome outcome = toy::ask(*transport, session, "echo", large, recorder.get());
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.text, large);
  EXPECT_THAT(recorder->lines, testing::ElementsAre("echoing 700000 bytes"));
  EXPECT_EQ(toy::ask(*transport, session, "fail").text, "it failed");
}

TEST_F(RemoteTest, TheCallersIdentityComesFromTheSocket) {
  const auto transport = agent::connect({"unix:" + path_, {}}, nullptr);
  ASSERT_TRUE(transport);
  EXPECT_EQ(toy::ask(*transport, toy::open(*transport), "whoami").number,
            static_cast<long long>(geteuid()));
}

TEST_F(RemoteTest, ChannelsCarryDataBetweenTheProcessesDirectly) {
  const auto transport = agent::connect({"unix:" + path_, {}}, nullptr);
  ASSERT_TRUE(transport);
  const std::string session = toy::open(*transport);
  const auto channel = transport->createChannel(QXL::QXLChannelSettings());
  ASSERT_TRUE(channel) << QXL::getErrorMessage();
  const auto end = channel->getDeserializerEnd();
  const auto* token =
      dynamic_cast<const agent::TokenChannelEnd*>(channel->getSerializerEnd().get());
  ASSERT_NE(token, nullptr);
  ASSERT_EQ(write(end->getOutputFd(), "ping", 4), 4);
  EXPECT_EQ(toy::ask(*transport, session, "channel", "", nullptr, nullptr, token->token()).code, 0);
  char buffer[8];
  EXPECT_EQ(read(end->getInputFd(), buffer, sizeof buffer), 4);
  EXPECT_EQ(read(end->getInputFd(), buffer, sizeof buffer), 0);
}

TEST_F(RemoteTest, CancelCrossesTheSocket) {
  const auto transport = agent::connect({"unix:" + path_, {}}, nullptr);
  ASSERT_TRUE(transport);
  const std::string session = toy::open(*transport);
  agent::CancelToken cancel;
  boost::intrusive_ptr<toy::Recorder> recorder(new toy::Recorder());
  recorder->onProgress = [&]() { cancel.cancel(); };
  EXPECT_EQ(toy::ask(*transport, session, "sleep", "", recorder.get(), &cancel).text,
            "the sleep was cut");
  EXPECT_EQ(toy::ask(*transport, session, agent::kMethodFinish).code, 0);
}

TEST_F(RemoteTest, AnAgentThatStopsEndsItsSessionsAndItsCallers) {
  agent::CurrentRequest request;
  request.cancel = std::make_shared<agent::CancelToken>();
  boost::shared_ptr<QXL::QXLRequestTransport> transport;
  {
    const agent::CurrentRequestScope scope(request,
                                           QXL::QXLRequestContextPrototype::createInstance());
    transport = agent::connect({"unix:" + path_, {}}, nullptr);
  }
  ASSERT_TRUE(transport);
  const std::string session = toy::open(*transport);
  std::thread stopper([&]() {
    while (toy::counts().sleeping == 0) std::this_thread::sleep_for(5ms);
    stop();
  });
  const toy::Outcome outcome = toy::ask(*transport, session, "sleep");
  stopper.join();
  EXPECT_EQ(outcome.code, 410);
  EXPECT_EQ(outcome.text, "The connection to the agent was lost: unix:" + path_ + " has closed it");
  EXPECT_EQ(toy::counts().finished, 1);
  // The request that made the connection is told, whatever it does meanwhile.
  EXPECT_EQ(request.cancel->code(), 410);
  EXPECT_EQ(request.cancel->argument(), ": unix:" + path_ + " has closed it");
}

TEST_F(RemoteTest, ACallerThatGoesEndsItsSessionsOnly) {
  auto transport = agent::connect({"unix:" + path_, {}}, nullptr);
  const auto other = agent::connect({"unix:" + path_, {}}, nullptr);
  ASSERT_TRUE(transport && other);
  toy::open(*transport);
  const std::string kept = toy::open(*other);
  transport.reset();
  for (int i = 0; i < 1000 && toy::counts().finished == 0; ++i) std::this_thread::sleep_for(10ms);
  EXPECT_EQ(toy::counts().finished, 1);
  EXPECT_EQ(toy::ask(*other, kept, "echo", "x").text, "x");
}

TEST_F(RemoteTest, OtherUsersAreToldApart) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "SKIPPED: only root can become another user";
  }
  ASSERT_EQ(chmod(path_.c_str(), 0666), 0);
  ASSERT_EQ(chmod(tree_.root().c_str(), 0755), 0);
  const pid_t child = fork();
  if (child == 0) {
    if (setgid(65534) != 0 || setuid(65534) != 0) _exit(2);
    // A process with threads was forked: talk to the agent by hand.
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) _exit(3);
    const auto frame = [&](const nlohmann::json& content) {
      const std::string bytes = agent::encodeFrame(content);
      if (write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) _exit(4);
    };
    frame({{"type", "hello"}, {"version", 1}, {"eid", "x"}});
    int id = 0;
    for (const char* method : {"create", "init", "whoami"}) {
      frame({{"type", "request"},
             {"id", ++id},
             {"session", "s"},
             {"operator", "toy"},
             {"method", method},
             {"body", nlohmann::json::object()}});
    }
    agent::FrameDecoder decoder;
    char buffer[4096];
    for (;;) {
      const ssize_t count = read(fd, buffer, sizeof buffer);
      if (count <= 0) _exit(5);
      decoder.feed(std::string_view(buffer, static_cast<size_t>(count)));
      while (const auto answer = decoder.next()) {
        if (answer->value("id", 0) == 3) _exit((*answer)["body"]["1017"] == 65534 ? 0 : 6);
      }
    }
  }
  int status;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  QXL::QXLClientContext nobody;
  nobody.uid = 65534;
  nobody.account = "nobody";
  EXPECT_NE(QXL::QXLAccessChecker::accessCheck(nobody, QXL::QXLConfiguration::getLocalEID(), 72),
            0);
  EXPECT_EQ(QXL::getErrorMessage(), "user 'nobody' lacks the right 72");
}

TEST(Access, TheAgentsOwnUserMayMigrateAndNothingElse) {
  const QXL::QXLClientContext self = QXL::QXLAccessChecker::getClientContext();
  const QXL::QXLEID local = QXL::QXLConfiguration::getLocalEID();
  EXPECT_EQ(QXL::QXLAccessChecker::accessCheck(self, local, 72), 0);
  EXPECT_NE(QXL::QXLAccessChecker::accessCheck(self, local, 73), 0);
  EXPECT_NE(QXL::QXLAccessChecker::accessCheck(self, QXL::QXLEID("other"), 72), 0);
  QXL::QXLClientContext unknown;
  EXPECT_NE(QXL::QXLAccessChecker::accessCheck(unknown, local, 72), 0);
}

std::string connectProblem(const std::string& address) {
  EXPECT_FALSE(agent::connect({address, {}}, nullptr));
  return QXL::getErrorMessage();
}

TEST(Connect, AddressesThatLeadNowhereAreNamed) {
  EXPECT_EQ(connectProblem("unix:/no/agent.sock"),
            "cannot connect to the agent at unix:/no/agent.sock: No such file or directory");
  EXPECT_EQ(connectProblem("unix:"),
            "'' cannot be the path of a socket: it must have 1 to 107 bytes");
  EXPECT_EQ(connectProblem("unix:/" + std::string(200, 'x')),
            "'/" + std::string(200, 'x') +
                "' cannot be the path of a socket: it must have 1 to 107 bytes");
}

TEST(Connect, APeerThatIsNoAgentIsRefused) {
  const test_support::TempTree tree;
  const std::string path = tree.path("sock");
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const host::Fd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(listener.get(), 1), 0);
  for (const auto& [reply, problem] : std::vector<std::pair<std::string, std::string>>{
           {"", " has closed it"},
           {"SSH-2.0-OpenSSH\r\n",
            ": a frame of 1397966893 bytes is announced, the most is 1048576"},
           {agent::encodeFrame({{"type", "beat2"}}), ": the peer did not begin with a greeting"},
           {agent::encodeFrame({{"type", "hello"}, {"version", 99}, {"eid", "x"}}),
            ": the peer speaks version 99 of the protocol, this agent 1"}}) {
    std::thread peer([&, &text = reply]() {
      const host::Fd fd(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
      char buffer[4096];
      [[maybe_unused]] const ssize_t got = read(fd.get(), buffer, sizeof buffer);
      [[maybe_unused]] const ssize_t put = write(fd.get(), text.data(), text.size());
    });
    EXPECT_EQ(connectProblem("unix:" + path), "no agent answers at unix:" + path + problem);
    peer.join();
  }
}

TEST(Server, ASocketNobodyListensOnIsTakenOver) {
  const test_support::TempTree tree;
  const std::string path = tree.path("sock");
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  memcpy(address.sun_path, path.c_str(), path.size() + 1);
  {
    const host::Fd old(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(old.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  struct stat info;
  {
    const agent::Server server(path);
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    try {
      const agent::Server second(path);
      ADD_FAILURE() << "a second agent took the socket";
    } catch (const std::runtime_error& problem) {
      EXPECT_EQ(std::string(problem.what()),
                "cannot listen on unix:" + path + ": another agent listens there");
    }
  }
  EXPECT_NE(stat(path.c_str(), &info), 0);
}

TEST(Server, WhatIsNoSocketIsLeftAlone) {
  const test_support::TempTree tree({test_support::fileAt("file", "precious")});
  EXPECT_THROW(agent::Server{tree.path("file")}, std::runtime_error);
  EXPECT_EQ(test_support::readFile(tree.path("file")), "precious");
  EXPECT_THROW(agent::Server{tree.path("no/such/dir")}, std::runtime_error);
}

}  // namespace
