#include "expand/conf_parser.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <functional>

#include "support/child_test.h"
#include "support/failing_call.h"
#include "support/temp_tree.h"

using namespace Expand;
using namespace test_support;

namespace {

// Notes the last error and goes on.
struct LastError : ConfParserErrHandler {
  void operator()(const Error& error) override { text = error.what(); }
  std::string text;
};

Config parseText(const std::string& text) {
  ConfParser parser;
  parser.init(ConfParser::FROM_STRING, text);
  Config config;
  parser.parse(config);
  return config;
}

Config parseFile(const std::string& path) {
  ConfParser parser;
  parser.init(ConfParser::FROM_FILE, path);
  Config config;
  parser.parse(config);
  return config;
}

std::string saved(const Config& config) {
  std::string text = "earlier";
  ConfParser().save(ConfParser::FROM_STRING, config, text);
  return text;
}

std::string errorOf(const std::function<void()>& body) {
  try {
    body();
  } catch (const Error& error) {
    return error.what();
  }
  return "no error";
}

std::string get(Config& config, const std::string& section, const std::string& option) {
  std::string text;
  config[section][option].value(text);
  return text;
}

}  // namespace

TEST(ConfParser, FileIsRead) {
  const TempTree tree({fileAt("conf", "A=1\n[main]\nB=2\n")});
  Config config = parseFile(tree.path("conf"));
  EXPECT_EQ(get(config, "GLOBAL", "A"), "1");
  EXPECT_EQ(get(config, "main", "B"), "2");
}

TEST(ConfParser, LargeFileIsRead) {
  std::string text;
  for (int i = 0; i < 2000; ++i) text += "# a comment that makes the file long\n";
  const TempTree tree({fileAt("conf", text + "LAST=1")});
  Config config = parseFile(tree.path("conf"));
  EXPECT_EQ(get(config, "GLOBAL", "LAST"), "1");
}

TEST(ConfParser, FileWithoutASizeIsRead) {
  Config config;
  LastError errors;
  ConfParser parser(&errors);
  parser.init(ConfParser::FROM_FILE, "/proc/self/status");
  parser.parse(config);
  EXPECT_TRUE(config["GLOBAL"]["Pid"].defined());
}

TEST(ConfParser, FileMethodIsNumberZero) { EXPECT_EQ(ConfParser::FROM_FILE, 0); }

TEST(ConfParser, FileIsReadWhenParsing) {
  TempTree tree;
  ConfParser parser;
  parser.init(ConfParser::FROM_FILE, tree.path("conf"));
  tree.add(fileAt("conf", "A=1\n"));
  Config config;
  parser.parse(config);
  EXPECT_EQ(get(config, "GLOBAL", "A"), "1");
}

TEST(ConfParser, ParserMayBeUsedAgain) {
  ConfParser parser;
  parser.init(ConfParser::FROM_STRING, "bad line\n");
  Config config;
  EXPECT_THROW(parser.parse(config), Error);
  parser.init(ConfParser::FROM_STRING, "[x]\na=1\n");
  parser.parse(config);
  EXPECT_EQ(get(config, "x", "a"), "1");
  // Again from the first line, in the first section.
  parser.init(ConfParser::FROM_STRING, "b=2\n!");
  EXPECT_EQ(errorOf([&] { parser.parse(config); }),
            "[Config reader] Error parsing config file. line 2, col 1: unexpected symbol");
  EXPECT_EQ(get(config, "GLOBAL", "b"), "2");
}

TEST(ConfParser, MissingFileIsReported) {
  EXPECT_EQ(errorOf([] { parseFile("/nonexistent/conf"); }),
            "[Config reader] Error reading config file. Can't open /nonexistent/conf: No such "
            "file or directory");
}

TEST(ConfParser, UnreadableFileIsReported) {
  const TempTree tree;
  EXPECT_EQ(
      errorOf([&] { parseFile(tree.root()); }),
      "[Config reader] Error reading config file. Can't read " + tree.root() + ": Is a directory");
}

TEST(ConfParser, FailingFstatIsReported) {
  const TempTree tree({fileAt("conf", "A=1\n")});
  runInChild([&] {
    failSystemCall(SYS_newfstatat, EIO);
    failSystemCall(SYS_fstat, EIO);
    EXPECT_EQ(errorOf([&] { parseFile(tree.path("conf")); }),
              "[Config reader] Error reading config file. Can't fstat " + tree.path("conf") +
                  ": Input/output error");
  });
}

TEST(ConfParser, HandlerThatReturnsLeavesTheConfigurationAlone) {
  LastError errors;
  ConfParser parser(&errors);
  parser.init(ConfParser::FROM_FILE, "/nonexistent/conf");
  Config config;
  parser.parse(config);
  EXPECT_NE(errors.text.find("Can't open"), std::string::npos);
  EXPECT_TRUE(config.sections().empty());
}

TEST(ConfParser, ConfigurationIsSavedInOrder) {
  Config config;
  config["main"]["b"].set("2");
  config["main"]["a"].set(" spaced # value ");
  config["empty"];
  config["last"]["x"].set("");
  EXPECT_EQ(saved(config), "[main]\nb=2\na= spaced # value \n[empty]\n[last]\nx=\n");
}

TEST(ConfParser, FirstSectionNamedGlobalHasNoHeaderLine) {
  for (const char* name : {"GLOBAL", "global", "Global"}) {
    Config config;
    config[name]["a"].set("1");
    config["other"]["b"].set("2");
    EXPECT_EQ(saved(config), "a=1\n[other]\nb=2\n") << name;
  }
}

TEST(ConfParser, LaterSectionNamedGlobalHasAHeaderLine) {
  Config config;
  config["other"]["b"].set("2");
  config["GLOBAL"]["a"].set("1");
  EXPECT_EQ(saved(config), "[other]\nb=2\n[GLOBAL]\na=1\n");
}

TEST(ConfParser, UndefinedOptionIsNotSaved) {
  Config config;
  config["main"]["a"];
  config["main"]["b"].set("1");
  EXPECT_EQ(saved(config), "[main]\nb=1\n");
}

TEST(ConfParser, EmptyConfigurationIsAnEmptyText) { EXPECT_EQ(saved(Config()), ""); }

TEST(ConfParser, SavedTextParsesToTheSame) {
  const std::string text = "a=1\n[x]\nb=2 = 3 # 4\n[y]\nc=\n";
  EXPECT_EQ(saved(parseText(text)), text);
}

TEST(ConfParser, FileIsWritten) {
  const TempTree tree({fileAt("conf", "an earlier and longer text", 0600)});
  Config config;
  config["main"]["a"].set("1");
  std::string path = tree.path("conf");
  ConfParser().save(ConfParser::FROM_FILE, config, path);
  EXPECT_EQ(path, tree.path("conf"));
  EXPECT_EQ(readFile(path), "[main]\na=1\n");
  std::string fresh = tree.path("fresh");
  ConfParser().save(ConfParser::FROM_FILE, config, fresh);
  EXPECT_EQ(readFile(fresh), "[main]\na=1\n");
}

TEST(ConfParser, FileThatCannotBeOpenedForWritingIsReported) {
  std::string path = "/nonexistent/conf";
  EXPECT_EQ(errorOf([&] { ConfParser().save(ConfParser::FROM_FILE, Config(), path); }),
            "[Config reader] Error writing config file. Can't open /nonexistent/conf for writing: "
            "No such file or directory");
}

TEST(ConfParser, FailingWriteIsReported) {
  Config config;
  config["main"]["a"].set("1");
  std::string path = "/dev/full";
  EXPECT_EQ(errorOf([&] { ConfParser().save(ConfParser::FROM_FILE, config, path); }),
            "[Config reader] Error writing config file. Can't write to /dev/full: No space left "
            "on device");
}

TEST(ConfParser, FailingCloseIsReported) {
  runInChild([] {
    const int next = dup(STDERR_FILENO);
    close(next);
    failSystemCall(SYS_close, EIO, CallArgument{0, static_cast<std::uint32_t>(next)});
    std::string path = "/dev/null";
    EXPECT_EQ(errorOf([&] { ConfParser().save(ConfParser::FROM_FILE, Config(), path); }),
              "[Config reader] Error writing config file. Can't write to /dev/null: Input/output "
              "error");
  });
}

TEST(ConfParser, SavingReportsToTheHandler) {
  LastError errors;
  std::string path = "/nonexistent/conf";
  ConfParser(&errors).save(ConfParser::FROM_FILE, Config(), path);
  EXPECT_NE(errors.text.find("for writing"), std::string::npos);
}
