// Requests on the local transport: the same frames, sessions and operators as between
// machines.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

#include "agent/transport/local_transport.h"
#include "agent/wire/message_fields.h"
#include "recorder.h"
#include "toy_operator.h"

namespace {

using testing::ElementsAre;
using namespace std::chrono_literals;

class SessionTest : public testing::Test {
 protected:
  toy::Registration registration_;
  agent::LocalTransport transport_;
};

void expectOutcome(const toy::Outcome& outcome, int code, const std::string& text) {
  EXPECT_EQ(outcome.code, code);
  EXPECT_EQ(outcome.text, text);
}

TEST_F(SessionTest, AStageAnswersAndReportsProgress) {
  const std::string session = toy::open(transport_);
  boost::intrusive_ptr<toy::Recorder> recorder(new toy::Recorder());
  expectOutcome(toy::ask(transport_, session, "echo", std::string("a\0\xff", 3), recorder.get()), 0,
                std::string("a\0\xff", 3));
  EXPECT_THAT(recorder->lines, ElementsAre("echoing 3 bytes"));
}

TEST_F(SessionTest, ARecordedErrorIsTheResult) {
  expectOutcome(toy::ask(transport_, toy::open(transport_), "fail"), -1, "it failed");
}

TEST_F(SessionTest, ACommandLeftOpenIsClosedWithItsError) {
  expectOutcome(toy::ask(transport_, toy::open(transport_), "silent"), -1, "said nothing");
}

TEST_F(SessionTest, AnExceptionIsAnAnswerAndTheSessionGoesOn) {
  const std::string session = toy::open(transport_);
  expectOutcome(toy::ask(transport_, session, "throw"), 500, "The agent failed: thrown");
  expectOutcome(toy::ask(transport_, session, "echo", "x"), 0, "x");
}

TEST_F(SessionTest, UnknownThingsAreRefused) {
  const std::string session = toy::open(transport_);
  expectOutcome(toy::ask(transport_, session, "nonsense"), 404,
                "The agent does not know 'nonsense'");
  expectOutcome(toy::ask(transport_, session, ""), 405, "'' cannot be called");
  expectOutcome(toy::ask(transport_, "other", "echo"), 409,
                "Out of turn: 'echo' without a session");
}

TEST_F(SessionTest, StagesWaitForInit) {
  toy::ask(transport_, "s", agent::kMethodCreate);
  expectOutcome(toy::ask(transport_, "s", "echo"), 409, "Out of turn: stage 'echo' before init");
  expectOutcome(toy::ask(transport_, "s", agent::kMethodInit), 0, "");
  expectOutcome(toy::ask(transport_, "s", "echo", "x"), 0, "x");
  expectOutcome(toy::ask(transport_, "s", agent::kMethodInit), 409,
                "Out of turn: the worker is initialised already");
  expectOutcome(toy::ask(transport_, "s", agent::kMethodCreate), 409,
                "Out of turn: the session has its worker already");
}

TEST_F(SessionTest, FinishEndsTheSessionOnceAndAgainHarmlessly) {
  const std::string session = toy::open(transport_);
  expectOutcome(toy::ask(transport_, session, agent::kMethodFinish), 0, "");
  EXPECT_EQ(toy::counts().finished, 1);
  expectOutcome(toy::ask(transport_, session, agent::kMethodFinish), 0, "");
  EXPECT_EQ(toy::counts().finished, 1);
  expectOutcome(toy::ask(transport_, session, "echo"), 409,
                "Out of turn: 'echo' without a session");
}

TEST_F(SessionTest, AnAnswerThatNoFrameHoldsIsAnErrorOfItsRequestAlone) {
  const std::string session = toy::open(transport_);
  const toy::Outcome outcome = toy::ask(transport_, session, "flood");
  EXPECT_EQ(outcome.code, 500);
  EXPECT_THAT(outcome.text, testing::HasSubstr("the answer of 'flood' is too large: a frame of "));
  expectOutcome(toy::ask(transport_, session, "echo", "x"), 0, "x");
}

TEST_F(SessionTest, ARequestThatWaitsBehindTheEndIsAnswered) {
  for (int round = 0; round < 20; ++round) {
    const std::string session = toy::open(transport_);
    std::thread slow([&]() { toy::ask(transport_, session, "pause"); });
    while (toy::counts().pausing == 0) std::this_thread::sleep_for(1ms);
    std::thread end([&]() { toy::ask(transport_, session, agent::kMethodFinish); });
    std::this_thread::sleep_for(10ms);
    // Waits behind "finish", or comes when all is over.
    const toy::Outcome late = toy::ask(transport_, session, "echo", "x");
    EXPECT_TRUE(late.code == 409 || (late.code == 0 && late.text == "x")) << late.text;
    slow.join();
    end.join();
    toy::reset();
  }
}

TEST_F(SessionTest, SessionsRunSideBySide) {
  const std::string first = toy::open(transport_);
  const std::string second = toy::open(transport_);
  agent::CancelToken cancel;
  std::thread sleeper([&]() { toy::ask(transport_, first, "sleep", "", nullptr, &cancel); });
  while (toy::counts().sleeping == 0) std::this_thread::sleep_for(5ms);
  expectOutcome(toy::ask(transport_, second, "echo", "x"), 0, "x");
  cancel.cancel();
  sleeper.join();
}

// Cancels as soon as the stage has begun; it must end long before its minute.
toy::Outcome cancelled(agent::LocalTransport& transport, const std::string& method) {
  const std::string session = toy::open(transport);
  agent::CancelToken cancel;
  boost::intrusive_ptr<toy::Recorder> recorder(new toy::Recorder());
  recorder->onProgress = [&]() { cancel.cancel(); };
  const auto began = std::chrono::steady_clock::now();
  const toy::Outcome outcome = toy::ask(transport, session, method, "", recorder.get(), &cancel);
  EXPECT_LT(std::chrono::steady_clock::now() - began, 20s);
  // The session is still there to be finished.
  EXPECT_EQ(toy::ask(transport, session, agent::kMethodFinish).code, 0);
  EXPECT_EQ(toy::counts().finished, 1);
  return outcome;
}

TEST_F(SessionTest, CancelStopsAProgramOfTheRunner) {
  expectOutcome(cancelled(transport_, "sleep"), -1, "the sleep was cut");
}

TEST_F(SessionTest, CancelStopsAProgramThatTheStageStartedItself) {
  expectOutcome(cancelled(transport_, "shell"), -1, "the shell was cut");
}

// Half-way, a service would go on stopping, not hear that it is started, and be down then.
TEST_F(SessionTest, CancelLetsAScriptThatStopsAServiceEndAndBeginsNoOther) {
  expectOutcome(cancelled(transport_, "stopServices"), 0, "");
}

TEST_F(SessionTest, TooManyWaitingRequestsAreRefused) {
  const std::string session = toy::open(transport_);
  agent::CancelToken cancel;
  std::vector<std::thread> callers;
  callers.emplace_back([&]() { toy::ask(transport_, session, "sleep", "", nullptr, &cancel); });
  while (toy::counts().sleeping == 0) std::this_thread::sleep_for(5ms);
  for (int i = 0; i < 4; ++i) {
    callers.emplace_back([&]() { toy::ask(transport_, session, "echo", "", nullptr, &cancel); });
  }
  toy::Outcome outcome;
  // Until those four wait, which a busy machine takes its time for.
  for (int i = 0; i < 12000 && outcome.code != 429; ++i) {
    std::this_thread::sleep_for(5ms);
    agent::CancelToken given;
    given.cancel();
    outcome = toy::ask(transport_, session, "echo", "", nullptr, &given);
  }
  expectOutcome(outcome, 429, "The agent is busy: too many requests of the session wait");
  cancel.cancel();
  for (std::thread& caller : callers) caller.join();
}

TEST_F(SessionTest, ARequestThatWaitsIsCancelledUnserved) {
  const std::string session = toy::open(transport_);
  agent::CancelToken cancelSleep;
  std::thread sleeper([&]() { toy::ask(transport_, session, "sleep", "", nullptr, &cancelSleep); });
  while (toy::counts().sleeping == 0) std::this_thread::sleep_for(5ms);
  agent::CancelToken given;
  given.cancel();
  expectOutcome(toy::ask(transport_, session, "sleep", "", nullptr, &given), 499, "Cancelled");
  cancelSleep.cancel();
  sleeper.join();
  EXPECT_EQ(toy::counts().sleeping, 1);
}

TEST(SessionEnd, ALostConnectionStopsProgramsAndFinishesEverySession) {
  const toy::Registration registration;
  auto transport = std::make_unique<agent::LocalTransport>();
  const std::string busy = toy::open(*transport);
  toy::open(*transport);
  std::thread sleeper([&]() {
    // The answer of the stage that was stopped.
    toy::ask(*transport, busy, "sleep");
  });
  while (toy::counts().sleeping == 0) std::this_thread::sleep_for(5ms);
  const auto began = std::chrono::steady_clock::now();
  transport->disconnect();
  EXPECT_LT(std::chrono::steady_clock::now() - began, 20s);
  sleeper.join();
  EXPECT_EQ(toy::counts().finished, 2);
  EXPECT_EQ(toy::counts().finishedWell, 0);
}

TEST_F(SessionTest, ChannelsReachTheStageThatNamesThem) {
  const std::string session = toy::open(transport_);
  const auto channel = transport_.createChannel(QXL::QXLChannelSettings());
  const auto here = channel->getDeserializerEnd();
  const auto* there =
      dynamic_cast<const agent::TokenChannelEnd*>(channel->getSerializerEnd().get());
  ASSERT_NE(there, nullptr);
  ASSERT_EQ(write(here->getOutputFd(), "ping", 4), 4);
  expectOutcome(toy::ask(transport_, session, "channel", "", nullptr, nullptr, there->token()), 0,
                "");
  char buffer[8];
  EXPECT_EQ(read(here->getInputFd(), buffer, sizeof buffer), 4);
  // The stage's end is gone with the stage.
  EXPECT_EQ(read(here->getInputFd(), buffer, sizeof buffer), 0);
  expectOutcome(toy::ask(transport_, session, "channel", "", nullptr, nullptr, there->token()), 400,
                "The request cannot be served: no channel waits under '" + there->token() + "'");
  expectOutcome(toy::ask(transport_, session, "channel"), 400,
                "The request cannot be served: channel required");
}

}  // namespace
