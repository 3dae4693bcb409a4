// This program is linked with the utility library as a shared library: that it
// links shows what is exported, and a few symbols must not be.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "expand/args_list.h"
#include "expand/caller.h"
#include "expand/conf_parser.h"
#include "expand/descriptors.h"
#include "expand/error.h"
#include "expand/files.h"
#include "expand/program_path.h"
#include "expand/runscript.h"
#include "expand/sigmask.h"
#include "expand/sleep.h"
#include "expand/strings.h"

using namespace Expand;

TEST(Exports, FreeFunctionsAreReachable) {
  const auto there = [](auto* function) { return reinterpret_cast<void*>(function) != nullptr; };
  EXPECT_TRUE(there(&strip));
  EXPECT_TRUE(there(&collapse));
  EXPECT_TRUE(there(&split));
  EXPECT_TRUE(there(&join_argv));
  EXPECT_TRUE(there(&replace));
  EXPECT_TRUE(there(&icase_strstr));
  EXPECT_TRUE(there(&btoa));
  EXPECT_TRUE(there(&atob));
  EXPECT_TRUE(there(&ver2str));
  EXPECT_TRUE(there(&str2ver));
  EXPECT_TRUE(there(&setFDNonblock));
  EXPECT_TRUE(there(&readFD));
  EXPECT_TRUE(there(&writeFD));
  EXPECT_TRUE(there(&swapFD));
  EXPECT_TRUE(there(&dumpOpenFDs));
  EXPECT_TRUE(there(&get_file));
  EXPECT_TRUE(there(&put_file));
  EXPECT_TRUE(there(&sleep_full));
  EXPECT_TRUE(there(&get_full_name));
  EXPECT_TRUE(there(&runscript));
  EXPECT_TRUE(there(&CallerExec::mergeEnvironments));
}

TEST(Exports, RunnerWorksAcrossTheBorder) {
  CfromStaticBuf in("text", 4);
  CtoDynaBuf out(100, true, -1);
  CtoStaticBuf discard;
  std::vector<Connector*> connectors = {&in, &out, &discard};
  CallerExec runner("cat", {}, {"PATH=/bin"}, {});
  runner.call(connectors);
  EXPECT_EQ(out.output(), "text");
  EXPECT_EQ(runner.getCoreDumpName(), "");
}

TEST(Exports, ErrorsAreCaughtAcrossTheBorder) {
  ConfParser parser;
  parser.init(ConfParser::FROM_STRING, "bad line");
  Config config;
  EXPECT_THROW(parser.parse(config), Error);
  EXPECT_THROW(ConfParserErrHandler()(Error(Error::CONFIG_PARSE, "x")), std::exception);
}

TEST(Exports, ValuesAndMasksAreReachable) {
  ConfigOption option;
  option.set("7");
  long number = 0;
  option.value(number, true);
  EXPECT_EQ(number, 7);
  EXPECT_NE(SigMask(std::vector<int>{SIGCHLD}).dump(), "");
  EXPECT_STREQ(ArgsList({"a"}).get()[0], "a");
  EXPECT_FALSE(CallerExec::sigchld_received);
}

TEST(Exports, PrivateHelpersAreHidden) {
  EXPECT_NE(dlsym(RTLD_DEFAULT,
                  "_ZN6Expand5stripERNSt7__cxx1112basic_stringIcSt11char_"
                  "traitsIcESaIcEEE"),
            nullptr);
  EXPECT_EQ(dlsym(RTLD_DEFAULT,
                  "_ZN6Expand18program_candidatesEPKcRKNSt7__cxx114listINS2_12basic_stringIcSt11"
                  "char_traitsIcESaIcEEESaIS8_EEE"),
            nullptr);
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "_ZNK6Expand17ProgramCandidates4findEv"), nullptr);
}
