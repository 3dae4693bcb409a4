#include "agent/wire/request_context.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "framework/haul.h"
#include "framework/logger.h"

namespace {

using QXL::QXLRequestContextPrototype;

TEST(RequestContext, KeepsTheLastErrorOfAnyLength) {
  const auto context = QXLRequestContextPrototype::createInstance();
  EXPECT_EQ(context->getLastErrorCode(), 0);
  const std::string text(10000, 'x');
  context->fsetLastError(-1, "%s %d", text.c_str(), 5);
  EXPECT_EQ(context->getLastErrorCode(), -1);
  EXPECT_EQ(context->getLastErrorText(), text + " 5");
}

TEST(RequestContext, TheCurrentOneIsTheThreadsAndNests) {
  const auto outer = QXLRequestContextPrototype::createInstance();
  const auto inner = QXLRequestContextPrototype::createInstance();
  const auto before = QXLRequestContextPrototype::getCurrent();
  ASSERT_TRUE(before);
  {
    const QXL::QXLRequestContextScope first(outer);
    EXPECT_EQ(QXLRequestContextPrototype::getCurrent(), outer);
    {
      const QXL::QXLRequestContextScope second(inner);
      EXPECT_EQ(QXLRequestContextPrototype::getCurrent(), inner);
      std::thread([&]() { EXPECT_NE(QXLRequestContextPrototype::getCurrent(), inner); }).join();
    }
    EXPECT_EQ(QXLRequestContextPrototype::getCurrent(), outer);
  }
  EXPECT_EQ(QXLRequestContextPrototype::getCurrent(), before);
}

TEST(RequestContext, ProgressGoesToTheSink) {
  std::vector<std::string> lines;
  boost::intrusive_ptr<QXLRequestContextPrototype> context(
      new agent::RequestContext([&](const QXL::QXLRequestProgressData& data) {
        lines.push_back(data.text + std::to_string(data.percent));
      }));
  context->freportProgress("line %d ", 1);
  QXL::QXLRequestProgressData data("");
  data.percent = 45;
  context->reportProgress(data);
  EXPECT_THAT(lines, testing::ElementsAre("line 1 -1", "45"));
}

class Command : public QXL::QXLRequestLocal {};

TEST(RequestLocal, BeginForgetsAndEndTellsTheRecordedError) {
  const QXL::QXLRequestContextScope scope(QXLRequestContextPrototype::createInstance());
  boost::intrusive_ptr<Command> command(new Command());
  command->getContextLocal()->setLastError(-1, "old");
  command->beginCommand();
  EXPECT_EQ(command->endCommand({}), 0);
  command->beginCommand();
  command->getContextLocal()->setLastError(-1, "new");
  EXPECT_EQ(command->endCommand({}), -1);
  command->beginCommand();
  QXL::QXLRequestErrorData denied;
  denied.code = 414;
  EXPECT_EQ(command->endCommand(denied), 414);
}

TEST(RequestLocal, CloseEndsAnOpenCommandOnly) {
  const QXL::QXLRequestContextScope scope(QXLRequestContextPrototype::createInstance());
  boost::intrusive_ptr<Command> command(new Command());
  command->getContextLocal()->setLastError(-1, "x");
  EXPECT_EQ(command->closeCommand(), 0);
  command->beginCommand();
  command->getContextLocal()->setLastError(-1, "x");
  EXPECT_EQ(command->closeCommand(), -1);
  EXPECT_EQ(command->closeCommand(), 0);
}

TEST(Logger, LinesAboveTheLevelAreDropped) {
  testing::internal::CaptureStderr();
  QXL::logMessage(4, "plugin", "Source", "function", "hidden %d", 1);
  QXL::logMessage(1, "plugin", "Source", "function", "shown %d", 2);
  const std::string output = testing::internal::GetCapturedStderr();
  EXPECT_THAT(output, testing::HasSubstr("1 plugin Source function: shown 2\n"));
  EXPECT_THAT(output, testing::Not(testing::HasSubstr("hidden")));
}

}  // namespace
