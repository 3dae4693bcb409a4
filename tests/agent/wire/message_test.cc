#include "agent/wire/message.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "framework/errors.h"

namespace {

using agent::Message;
using MessagePtr = boost::intrusive_ptr<Message>;

TEST(Message, ValuesComeBackByTheirId) {
  MessagePtr message(new Message());
  message->putValueLongLong(-9223372036854775807LL - 1, 1017);
  message->putValueBase64(std::string("a\0\xff", 3), 1811);
  long long number = 0;
  std::string text;
  EXPECT_EQ(message->getValueLongLong(number, 1017), 0);
  EXPECT_EQ(message->getValueBase64(text, 1811), 0);
  EXPECT_EQ(number, -9223372036854775807LL - 1);
  EXPECT_EQ(text, std::string("a\0\xff", 3));
}

TEST(Message, AnEmptyStringIsPresent) {
  MessagePtr message(new Message());
  message->putValueBase64("", 1811);
  std::string text = "old";
  EXPECT_EQ(message->getValueBase64(text, 1811), 0);
  EXPECT_EQ(text, "");
}

TEST(Message, AbsentOrOtherFieldsLeaveTheVariableAlone) {
  MessagePtr message(new Message());
  message->putValueLongLong(5, 1);
  message->putValueBase64("x", 2);
  long long number = 42;
  std::string text = "old";
  EXPECT_NE(message->getValueLongLong(number, 3), 0);
  EXPECT_NE(message->getValueLongLong(number, 2), 0);
  EXPECT_NE(message->getValueBase64(text, 1), 0);
  EXPECT_NE(message->getValueBase64(text, 3), 0);
  EXPECT_EQ(number, 42);
  EXPECT_EQ(text, "old");
}

TEST(Message, BrokenBase64IsNoValue) {
  MessagePtr message(new Message(nlohmann::json::parse("{\"1\":{\"base64\":\"***\"}}")));
  std::string text = "old";
  EXPECT_NE(message->getValueBase64(text, 1), 0);
  EXPECT_EQ(text, "old");
}

TEST(Message, TheFirstErrorIsTheResult) {
  MessagePtr message(new Message());
  EXPECT_EQ(message->firstError(), std::nullopt);
  message->putError(-1, "first \xff");
  message->putError(400, "second");
  EXPECT_EQ(*message->firstError(), std::pair(-1, std::string("first \xff")));
}

TEST(Message, TableErrorsTakeTheirArgument) {
  MessagePtr message(new Message());
  addError(message, QXL::QXLErrors, 400, "param required");
  EXPECT_EQ(*message->firstError(),
            std::pair(400, std::string("The request cannot be served: param required")));
}

TEST(Message, ACodeOutsideTheTableGetsTheLastRow) {
  MessagePtr message(new Message());
  addError(message, QXL::QXLErrors, 12345, "x");
  EXPECT_EQ(*message->firstError(), std::pair(12345, std::string("Error x")));
}

TEST(Message, BodiesThatAreNoMessagesAreRefused) {
  for (const char* text :
       {"null", "[]", "{\"errors\":1}", "{\"errors\":[1]}", "{\"errors\":[{\"code\":\"1\"}]}",
        "{\"errors\":[{\"code\":1}]}", "{\"errors\":[{\"code\":1,\"text\":2}]}"}) {
    EXPECT_THROW(Message::check(nlohmann::json::parse(text)), std::runtime_error) << text;
  }
  EXPECT_NO_THROW(Message::check(nlohmann::json::parse("{\"1\":2}")));
}

}  // namespace
