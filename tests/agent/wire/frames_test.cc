#include "agent/wire/frames.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <stdexcept>

namespace {

using nlohmann::json;

std::string announce(size_t length) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(length >> shift & 255);
  return bytes;
}

std::string problemOf(std::string_view bytes) {
  agent::FrameDecoder decoder;
  decoder.feed(bytes);
  try {
    decoder.next();
  } catch (const std::runtime_error& problem) {
    return problem.what();
  }
  return "";
}

TEST(Frames, AFrameComesBackHoweverItIsCut) {
  const json first = {{"type", "request"}, {"id", 7}};
  const json second = {{"type", "beat"}};
  const std::string bytes = agent::encodeFrame(first) + agent::encodeFrame(second);
  for (size_t cut = 0; cut <= bytes.size(); ++cut) {
    agent::FrameDecoder decoder;
    std::vector<json> got;
    for (const std::string& part : {bytes.substr(0, cut), bytes.substr(cut)}) {
      decoder.feed(part);
      while (auto frame = decoder.next()) got.push_back(*frame);
    }
    ASSERT_EQ(got.size(), 2u) << cut;
    EXPECT_EQ(got[0], first);
    EXPECT_EQ(got[1], second);
  }
}

TEST(Frames, BytesThatAreNoTextAreReplacedNotFatal) {
  const std::string bytes = agent::encodeFrame({{"type", "progress"}, {"text", "file \xff name"}});
  agent::FrameDecoder decoder;
  decoder.feed(bytes);
  EXPECT_EQ((*decoder.next())["text"], "file \xEF\xBF\xBD name");
}

TEST(Frames, TooLongAFrameIsRefusedFromItsLengthAlone) {
  EXPECT_EQ(problemOf(announce(1048577)),
            "a frame of 1048577 bytes is announced, the most is 1048576");
  EXPECT_EQ(problemOf(announce(1048576)), "");
  EXPECT_EQ(problemOf("\xff\xff\xff\xff"),
            "a frame of 4294967295 bytes is announced, the most is 1048576");
}

TEST(Frames, OfALongAnswerAreAcceptedWhileItIsExpected) {
  agent::FrameDecoder decoder;
  decoder.accept(agent::kMaxFrameBytes);
  decoder.feed(announce(33554432));
  EXPECT_FALSE(decoder.next());
  agent::FrameDecoder other;
  other.accept(agent::kMaxFrameBytes);
  other.feed(announce(33554433));
  EXPECT_THROW(other.next(), std::runtime_error);
}

TEST(Frames, TooLongAFrameIsNotSent) {
  EXPECT_THROW(agent::encodeFrame({{"type", std::string(agent::kMaxFrameBytes, 'x')}}),
               std::length_error);
}

TEST(Frames, MalformedFramesAreRefused) {
  const auto framed = [](const std::string& text) { return announce(text.size()) + text; };
  EXPECT_EQ(problemOf(framed("")), "a frame is not acceptable: it is not JSON");
  EXPECT_EQ(problemOf(framed("GET / HTTP/1.1")), "a frame is not acceptable: it is not JSON");
  EXPECT_EQ(problemOf(framed("[1]")), "a frame is not a JSON object");
  EXPECT_EQ(problemOf(framed("{}")), "a frame lacks the text 'type'");
  EXPECT_EQ(problemOf(framed("{\"type\":1}")), "a frame lacks the text 'type'");
  EXPECT_EQ(problemOf(framed("{\"type\":\"x\"} {}")), "a frame is not acceptable: it is not JSON");
}

TEST(Frames, DeepNestingIsRefused) {
  std::string text = "{\"type\":\"x\",\"body\":";
  for (int i = 0; i < 100000; ++i) text += '[';
  EXPECT_NE(problemOf(announce(text.size()) + text), "");
  std::string closed =
      "{\"type\":\"x\",\"body\":" + std::string(40, '[') + std::string(40, ']') + "}";
  EXPECT_EQ(problemOf(announce(closed.size()) + closed),
            "a frame is not acceptable: it is nested more than 16 deep");
}

TEST(Frames, FieldsAreCheckedForTheirType) {
  const json frame = {{"type", "x"}, {"id", "7"}};
  EXPECT_THROW(agent::numberOf(frame, "id"), std::runtime_error);
  EXPECT_THROW(agent::numberOf(frame, "none"), std::runtime_error);
  EXPECT_THROW(agent::textOf({{"a", 1}}, "a"), std::runtime_error);
}

}  // namespace
