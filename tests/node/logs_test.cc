#include "node/logs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "node/run_record.h"
#include "node_test/system_tree.h"
#include "support/container_101.h"
#include "support/scratch_host.h"
#include "support/temp_tree.h"

namespace {

using node_test::ToolResult;
using test_support::kConf;
using test_support::ScratchHost;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kPlace[] = "/run/qx/lxc/qx-101/";

template <class... Arguments>
ToolResult logs(const Arguments&... arguments) {
  return node_test::runTool({node_test::toolPath("qxctl"), "logs", arguments...});
}

void append(const std::string& path, const char* text) {
  std::ofstream(path, std::ios::app) << text;
}

TEST(Log, IsReadOnAlsoWhenLxcBeginsANewFile) {
  const test_support::TempTree tree;
  const std::string path = tree.path("console");
  node::Log log(path);
  EXPECT_THAT(log.lines(), IsEmpty()) << "there is none yet";
  append(path, "one\ntw");
  EXPECT_THAT(log.lines(), ElementsAre("one"));
  EXPECT_EQ(log.rest(), "tw");
  append(path, "o\nthr");
  std::filesystem::rename(path, path + ".1");
  append(path, "ee\nfour\n");
  EXPECT_THAT(log.lines(), ElementsAre("two", "three", "four"));
  EXPECT_THAT(log.lines(), IsEmpty());
  node::Log later(path);
  EXPECT_THAT(later.lines(), ElementsAre("one", "two", "three", "four"));
}

TEST(Log, DrivesNoTerminal) {
  const test_support::TempTree tree({test_support::fileAt(
      "log", "[\x1b[0;32m  OK  \x1b[0m] Started\r\n\x1b]0;title\x07\n\x1b[")});
  node::Log log(tree.path("log"));
  EXPECT_THAT(log.lines(), ElementsAre("[  OK  ] Started", "\\x1b]0;title\\x07"));
  EXPECT_EQ(log.rest(), "");
}

TEST(QxctlLogs, ShowTheLastLinesOfBothLogs) {
  ScratchHost()
      .file(kConf, "")
      .file(std::string(kPlace) + "log", "no init\n")
      .file(std::string(kPlace) + "console.1", "a\nb\n")
      .file(std::string(kPlace) + "console", "c\nlogin: ")
      .run([] {
        const ToolResult all = logs("101");
        EXPECT_EQ(all.status, 0);
        EXPECT_EQ(all.err, "");
        EXPECT_EQ(all.out,
                  "==> /run/qx/lxc/qx-101/log <==\nno init\n\n"
                  "==> /run/qx/lxc/qx-101/console <==\na\nb\nc\nlogin: \n");
        EXPECT_THAT(logs("101", "-n", "2").out, HasSubstr("console <==\nc\nlogin: \n"));
        EXPECT_EQ(logs("101", "--lines", "-1").status, 2);
        node::forgetRun(101);
        EXPECT_EQ(logs("101").out, all.out) << "they are there when it has stopped";
        node::forgetLogs(101);
        EXPECT_EQ(logs("101").status, 14);
      });
}

TEST(QxctlLogs, OfAContainerThatWasNeverStartedAreNotThere) {
  ScratchHost().file(kConf, "").run([] {
    const ToolResult result = logs("101");
    EXPECT_EQ(result.status, 14);
    EXPECT_EQ(result.err,
              "qxctl: container 101 was not started since this host was: there is neither "
              "/run/qx/lxc/qx-101/log nor /run/qx/lxc/qx-101/console\n");
    EXPECT_EQ(logs("102").status, 14);
  });
}

}  // namespace
