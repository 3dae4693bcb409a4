#include "agent/transport/caller.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "agent/transport/request.h"
#include "framework/errors.h"

namespace {

// Keeps what is sent and lets the test answer at once.
class FakeSink : public agent::FrameSink {
 public:
  bool send(const nlohmann::json& frame, const std::vector<int>&) override {
    sent.push_back(frame);
    if (onSend) onSend(frame);
    return works;
  }
  std::vector<nlohmann::json> sent;
  std::function<void(const nlohmann::json&)> onSend;
  bool works = true;
};

TEST(Caller, AnswersFindTheirCalls) {
  FakeSink sink;
  agent::Caller caller(sink);
  sink.onSend = [&](const nlohmann::json& frame) {
    caller.onFrame({{"type", "answer"}, {"id", 999}, {"body", {{"1", 0}}}});
    caller.onFrame({{"type", "answer"}, {"id", frame["id"]}, {"body", {{"1", 5}}}});
  };
  nlohmann::json answer;
  EXPECT_EQ(caller.call({"s", "op", "m"}, answer, nullptr, nullptr), 0);
  EXPECT_EQ(answer["1"], 5);
  EXPECT_EQ(sink.sent[0]["session"], "s");
  EXPECT_EQ(sink.sent[0]["operator"], "op");
  EXPECT_EQ(sink.sent[0]["method"], "m");
}

TEST(Caller, AfterALossEveryCallFailsWithTheReason) {
  FakeSink sink;
  agent::Caller caller(sink);
  sink.onSend = [&](const nlohmann::json&) { caller.onLost("the cable is cut"); };
  nlohmann::json answer;
  EXPECT_EQ(caller.call({}, answer, nullptr, nullptr), 410);
  EXPECT_EQ(QXL::getErrorMessage(), "The connection to the agent was lost: the cable is cut");
  EXPECT_EQ(caller.call({}, answer, nullptr, nullptr), 410);
  EXPECT_EQ(sink.sent.size(), 1u);
}

TEST(Caller, WhatCannotBeSentIsALoss) {
  FakeSink sink;
  sink.works = false;
  agent::Caller caller(sink);
  nlohmann::json answer;
  EXPECT_EQ(caller.call({}, answer, nullptr, nullptr), 410);
}

TEST(Caller, AnAgentThatNeverAnswersIsGivenUp) {
  FakeSink sink;
  agent::Caller caller(sink);
  agent::RequestLimits limits;
  limits.longest = std::chrono::milliseconds(1000);
  nlohmann::json answer;
  EXPECT_EQ(caller.call({"s", "op", "finish"}, answer, nullptr, nullptr, limits), 408);
  EXPECT_EQ(QXL::getErrorMessage(), "the agent did not answer 'finish' within 1 seconds");
  EXPECT_EQ(sink.sent[1]["type"], "cancel");
}

TEST(Caller, AnAnswerWithinTheLimitIsTaken) {
  FakeSink sink;
  agent::Caller caller(sink);
  sink.onSend = [&](const nlohmann::json& frame) {
    caller.onFrame({{"type", "answer"}, {"id", frame["id"]}, {"body", nlohmann::json::object()}});
  };
  agent::RequestLimits limits;
  limits.longest = std::chrono::milliseconds(60000);
  nlohmann::json answer;
  EXPECT_EQ(caller.call({"s", "op", "finish"}, answer, nullptr, nullptr, limits), 0);
}

TEST(Caller, WhatIsAbandonedEndsAtOnceWhateverTheAgentDoes) {
  FakeSink sink;
  agent::Caller caller(sink);
  agent::CancelToken token;
  sink.onSend = [&](const nlohmann::json& frame) {
    // Progress without end is no answer.
    caller.onFrame({{"type", "progress"},
                    {"id", frame["id"]},
                    {"text", "soon"},
                    {"description", ""},
                    {"percent", -1}});
    token.abandon();
  };
  agent::RequestLimits limits;
  limits.abandon = &token;
  nlohmann::json answer;
  EXPECT_EQ(caller.call({"s", "op", "finish"}, answer, nullptr, nullptr, limits), 499);
  EXPECT_EQ(QXL::getErrorMessage(), "'finish' was not waited for");
}

TEST(Caller, AFloodOfLinesDoesNotKeepFromGivingUp) {
  FakeSink sink;
  agent::Caller caller(sink);
  const auto line = [&](const nlohmann::json& id) {
    caller.onFrame(
        {{"type", "progress"}, {"id", id}, {"text", "x"}, {"description", ""}, {"percent", -1}});
  };
  // Each line that is shown brings the next ones.
  class Flood : public QXL::QXLProgressHandlerPrototype {
   public:
    explicit Flood(std::function<void()> next) : next_(std::move(next)) {}
    void progress(const QXL::QXLRequestProgressData&) override { next_(); }
    void error(int, const std::string&) override {}
    void stageBegins(const std::string&) override {}
    void stageEnds(const std::string&, int) override {}

   private:
    std::function<void()> next_;
  };
  nlohmann::json id;
  boost::intrusive_ptr<Flood> flood(new Flood([&]() { line(id); }));
  sink.onSend = [&](const nlohmann::json& frame) {
    if (frame["type"] != "request") return;
    id = frame["id"];
    line(id);
  };
  agent::RequestLimits limits;
  limits.longest = std::chrono::milliseconds(500);
  nlohmann::json answer;
  EXPECT_EQ(caller.call({"s", "op", "m"}, answer, flood.get(), nullptr, limits), 408);
}

TEST(Caller, LinesThatNobodyReadsDoNotPileUpAndTheAnswerStays) {
  FakeSink sink;
  agent::Caller caller(sink);
  sink.onSend = [&](const nlohmann::json& frame) {
    for (int i = 0; i < 5000; ++i) {
      caller.onFrame({{"type", "progress"},
                      {"id", frame["id"]},
                      {"text", std::to_string(i)},
                      {"description", ""},
                      {"percent", -1}});
    }
    caller.onFrame({{"type", "answer"}, {"id", frame["id"]}, {"body", {{"1", 5}}}});
  };
  class Counter : public QXL::QXLProgressHandlerPrototype {
   public:
    void progress(const QXL::QXLRequestProgressData& data) override {
      ++lines;
      last = data.text;
    }
    void error(int, const std::string&) override {}
    void stageBegins(const std::string&) override {}
    void stageEnds(const std::string&, int) override {}
    int lines = 0;
    std::string last;
  };
  boost::intrusive_ptr<Counter> counter(new Counter());
  nlohmann::json answer;
  EXPECT_EQ(caller.call({"s", "op", "m"}, answer, counter.get(), nullptr), 0);
  EXPECT_EQ(answer["1"], 5);
  EXPECT_EQ(counter->last, "4999");
  EXPECT_LE(counter->lines, 1000);
}

TEST(Caller, MalformedFramesAreRefused) {
  FakeSink sink;
  agent::Caller caller(sink);
  for (const char* text :
       {"{\"type\":\"answer\"}", "{\"type\":\"answer\",\"id\":1,\"body\":[]}",
        "{\"type\":\"answer\",\"id\":1}", "{\"type\":\"progress\",\"id\":1}",
        "{\"type\":\"progress\",\"id\":1,\"text\":\"\",\"description\":\"\",\"percent\":\"x\"}"}) {
    EXPECT_THROW(caller.onFrame(nlohmann::json::parse(text)), std::runtime_error) << text;
  }
}

}  // namespace
