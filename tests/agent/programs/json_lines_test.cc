#include "agent/programs/json_lines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>

using agent::JsonLines;
using agent::MigrationResult;
using agent::tellJsonEnd;
using nlohmann::json;

namespace {

// What is printed meanwhile: one object per line.
std::vector<json> linesOf(const std::function<void()>& work) {
  testing::internal::CaptureStdout();
  work();
  std::istringstream text(testing::internal::GetCapturedStdout());
  std::vector<json> lines;
  for (std::string line; std::getline(text, line);) {
    EXPECT_THAT(line, testing::MatchesRegex("[ -~]*")) << "not ASCII";
    lines.push_back(json::parse(line));
    EXPECT_TRUE(lines.back().contains("time"));
    lines.back().erase("time");
  }
  return lines;
}

MigrationResult failed() {
  MigrationResult result;
  result.stage = "rSync2";
  result.text = "no \xff space";
  result.leftOut.add("/a", "gone");
  result.record.services = {"nginx"};
  result.record.stages = {{"stopServices", "", 2, 0}, {"rSync2", "", 3.5, 1}};
  return result;
}

TEST(JsonLines, EachEventIsALine) {
  const auto lines = linesOf([] {
    JsonLines view;
    view.stageBegins("lockVPS");
    view.stageEnds("lockVPS", 0, 0.5);
    view.line("a\x1b[2J\n\xc3\xa4");
    view.percent("copy", 12);
    host::CopyReport report;
    report.add("/a", "gone");
    view.leftOut(report);
  });
  ASSERT_EQ(lines.size(), 6U);
  EXPECT_EQ(lines[0]["event"], "hello");
  EXPECT_EQ(lines[0]["format"], 1);
  EXPECT_FALSE(lines[0]["version"].get<std::string>().empty());
  EXPECT_EQ(lines[1], (json{{"event", "stageBegins"}, {"stage", "lockVPS"}}));
  EXPECT_EQ(lines[2],
            (json{{"event", "stageEnds"}, {"stage", "lockVPS"}, {"result", 0}, {"seconds", 0.5}}));
  EXPECT_EQ(lines[3], (json{{"event", "text"}, {"text", "a\x1b[2J\n\xc3\xa4"}}));
  EXPECT_EQ(lines[4], (json{{"event", "percent"}, {"text", "copy"}, {"percent", 12}}));
  EXPECT_EQ(lines[5]["count"], 1);
  EXPECT_EQ(lines[5]["files"][0]["path"], "/a");
}

TEST(JsonLines, TheOutageIsToldEachSecond) {
  const auto lines = linesOf([] {
    JsonLines view;
    view.expect({1000, true});
    view.stageBegins("stopServices");
    usleep(1500000);
    view.stageEnds("stopServices", 0, 1.5);
  });
  // More than once, where this machine took its time.
  ASSERT_GE(lines.size(), 4U);
  EXPECT_EQ(lines[2]["event"], "progress");
  EXPECT_EQ(lines[2]["stage"], "stopServices");
  EXPECT_GE(lines[2]["outageSeconds"], 0);
  EXPECT_FALSE(lines[2].contains("copied"));
}

TEST(JsonLines, TheEndTellsTheStatusAndTheFailure) {
  const MigrationResult result = failed();
  const auto lines = linesOf([&] { tellJsonEnd(101, 1, &result); });
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0], (json{{"event", "end"},
                            {"container", 101},
                            {"status", 1},
                            {"leftOut", 1},
                            {"stage", "rSync2"},
                            {"error", "no \xef\xbf\xbd space"},
                            {"outageSeconds", 5.5}}));
}

TEST(JsonLines, TheEndOfWhatHasNotBegunIsTheStatus) {
  const auto lines = linesOf([] { tellJsonEnd(101, 2, nullptr); });
  EXPECT_EQ(lines, (std::vector<json>{{{"event", "end"}, {"container", 101}, {"status", 2}}}));
}

}  // namespace
