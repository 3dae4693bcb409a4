// What the program does by itself, from its command line to its messages.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "share_tests/transfer.h"
#include "support/temp_tree.h"

using test_support::dirAt;
using test_support::fileAt;
using test_support::readFile;
using test_support::TempTree;

namespace {

// A copy of the program with this script as the stock rsync beside it.
std::string programWithStock(TempTree& tree, const std::string& script) {
  tree.add(dirAt("own"));
  const std::string path = tree.path("own/rsync");
  std::filesystem::copy_file(builtRsync(), path, std::filesystem::copy_options::overwrite_existing);
  tree.add(fileAt("own/rsync.stock", "#!/bin/sh\n" + script, 0755));
  return path;
}

std::string peerSays(const std::string& words, std::vector<std::string> command, int* status) {
  Channel channel = pipeChannel();
  EXPECT_EQ(::write(channel.server.out.get(), words.data(), words.size()),
            static_cast<ssize_t>(words.size()));
  channel.server.out.close();
  ProgramRun run(std::move(command));
  run.setInput(channel.client.in.get());
  run.setOutput(channel.client.out.get());
  run.start();
  channel.client = {};
  *status = run.exitStatus(10);
  return run.err();
}

const std::vector<std::string> serverCommand = {builtRsync(),    "--server", "--sender", "-ESHa",
                                                "--numeric-ids", "--delete", ".",        "/"};

}  // namespace

TEST(CommandLine, VersionIsStocks) {
  ProgramRun ours({builtRsync(), "--version"});
  ProgramRun stock({"/usr/bin/rsync", "--version"});
  ours.start();
  stock.start();
  EXPECT_EQ(ours.exitStatus(), 0);
  EXPECT_EQ(stock.exitStatus(), 0);
  EXPECT_EQ(ours.out(), stock.out());
  EXPECT_NE(ours.out(), "");
}

TEST(CommandLine, OrdinaryArgumentsReachStockUnchanged) {
  TempTree tree;
  const std::string program =
      programWithStock(tree, "for a in \"$@\"; do echo \"<$a>\"; done; exit 24\n");
  ProgramRun run({program, "-a", "", "a b", "--exclude=*", "--server-not", "x"});
  run.start();
  EXPECT_EQ(run.exitStatus(), 24);
  EXPECT_EQ(run.out(), "<-a>\n<>\n<a b>\n<--exclude=*>\n<--server-not>\n<x>\n");
}

TEST(CommandLine, OrdinaryLocalCopyWorks) {
  const TempTree tree({fileAt("a/file", "x")});
  EXPECT_EQ(runProgram({builtRsync(), "-a", tree.path("a/"), tree.path("b")}), 0);
  EXPECT_EQ(readFile(tree.path("b/file")), "x");
}

TEST(CommandLine, StockClientMayUseItAsItsRemoteRsync) {
  TempTree tree({fileAt("a/file", "x"), fileAt("shell", "#!/bin/sh\nshift\nexec \"$@\"\n", 0755)});
  EXPECT_EQ(runProgram({"/usr/bin/rsync", "-a", "--rsh=" + tree.path("shell"),
                        "--rsync-path=" + builtRsync(), "host:" + tree.path("a/"), tree.path("b")}),
            0);
  EXPECT_EQ(readFile(tree.path("b/file")), "x");
}

TEST(CommandLine, ProgressBarAloneSuitsAnOrdinaryCopy) {
  const TempTree tree({fileAt("a/file", "x")});
  ProgramRun run({builtRsync(), "-a", "--progress-bar", tree.path("a/"), tree.path("b")});
  run.start();
  EXPECT_EQ(run.exitStatus(), 0);
  const std::string lastLine = "1 100% |####################|\n";
  ASSERT_GE(run.out().size(), lastLine.size());
  EXPECT_EQ(run.out().substr(run.out().size() - lastLine.size()), lastLine);
}

TEST(CommandLine, MessagesNameTheBadDescriptor) {
  struct {
    std::vector<std::string> options;
    std::string message;
  } const cases[] = {
      {{"--fdin", "five", "--fdout", "1"},
       "rsync: the value 'five' of --fdin is not a file descriptor number\n"},
      {{"--fdin", "0"}, "rsync: --fdin is given without --fdout\n"},
      {{"--fdin", "77", "--fdout", "1"},
       "rsync: the value '77' of --fdin is not an open file descriptor\n"},
      {{"--fdin", "0", "--fdout=78"},
       "rsync: the value '78' of --fdout is not an open file descriptor\n"},
  };
  for (const auto& wanted : cases) {
    std::vector<std::string> command = {builtRsync(), "-a", "0.0.0.0:/", "/nowhere"};
    command.insert(command.end(), wanted.options.begin(), wanted.options.end());
    ProgramRun run(command);
    run.start();
    EXPECT_EQ(run.exitStatus(10), 1);
    EXPECT_EQ(run.err(), wanted.message);
  }
}

TEST(CommandLine, DescriptorOpenTheWrongWayIsRefused) {
  const Channel channel = pipeChannel();
  const std::string in = std::to_string(channel.client.out.get());
  ProgramRun run({builtRsync(), "-a", "--fdin", in, "--fdout", in, "0.0.0.0:/", "/nowhere"});
  run.inherit(channel.client.out.get());
  run.start();
  EXPECT_EQ(run.exitStatus(10), 1);
  EXPECT_EQ(run.err(), "rsync: the value '" + in + "' of --fdin is not open for reading\n");
}

TEST(CommandLine, StockBesideTheProgramIsPreferred) {
  TempTree tree;
  ProgramRun run({programWithStock(tree, "echo mine\n"), "--version"});
  run.start();
  EXPECT_EQ(run.exitStatus(), 0);
  EXPECT_EQ(run.out(), "mine\n");
}

TEST(CommandLine, StockThatCannotRunIsNamed) {
  TempTree tree;
  const std::string program = programWithStock(tree, "");
  tree.add(fileAt("own/rsync.stock", "not a program", 0644));
  ProgramRun run({program, "--progress-bar", "-a", "x", "y"});
  run.start();
  EXPECT_EQ(run.exitStatus(), 14);
  EXPECT_EQ(run.err(),
            "rsync: cannot run " + tree.path("own/rsync.stock") + ": Permission denied\n");
}

TEST(CommandLine, PathOfTheProgramMayHoldBlanksAndQuotes) {
  const TempTree tree({dirAt("a b'c\"d"), fileAt("from/file", "x"), dirAt("to")});
  const std::string program = tree.path("a b'c\"d/rsync");
  std::filesystem::copy_file(builtRsync(), program);
  Transfer run(tree.path("from/"), tree.path("to"));
  run.useClient(program);
  run.start(pipeChannel());
  run.expectBothEndWith(0);
  EXPECT_EQ(readFile(tree.path("to/file")), "x");
}

TEST(CommandLine, StockErrorsAndOutputPass) {
  TempTree tree;
  const std::string program =
      programWithStock(tree, "echo to the user; echo to the log >&2; exit 3\n");
  ProgramRun run({program, "--progress-bar", "-a", "x", "y"});
  run.start();
  EXPECT_EQ(run.exitStatus(), 3);
  EXPECT_EQ(run.out(), "to the user\n");
  EXPECT_EQ(run.err(), "to the log\n");
}

TEST(CommandLine, EnvironmentDoesNotChangeTheWire) {
  const TempTree tree({fileAt("from/file", "x"), dirAt("to")});
  ::setenv("RSYNC_PROTECT_ARGS", "1", 1);
  ::setenv("RSYNC_ICONV", "utf-8,latin1", 1);
  ::setenv("RSYNC_RSH", "/bin/false", 1);
  transfer(tree.path("from/"), tree.path("to"));
  ::unsetenv("RSYNC_PROTECT_ARGS");
  ::unsetenv("RSYNC_ICONV");
  ::unsetenv("RSYNC_RSH");
  EXPECT_EQ(readFile(tree.path("to/file")), "x");
}

TEST(Peer, ThatIsNotThisProgramIsAProtocolError) {
  int status = 0;
  const std::vector<std::string> client = {builtRsync(), "-ESHa", "--fdin",    "0",
                                           "--fdout",    "1",     "0.0.0.0:/", "/nowhere"};
  for (const std::vector<std::string>& command : {client, serverCommand}) {
    EXPECT_EQ(peerSays("SSH-2.0-OpenSSH_9.2\r\n", command, &status),
              "rsync: the other end of the data channel does not run this version of this program: "
              "\"SSH-2.0-OpenSSH_9.2\\r\"\n");
    EXPECT_EQ(status, 12);
    EXPECT_EQ(peerSays("QXRSYNC 1 AX 0\n", command, &status),
              "rsync: the other end of the data channel does not run this version of this program: "
              "\"QXRSYNC 1 AX 0\"\n");
    EXPECT_EQ(status, 12);
    EXPECT_EQ(peerSays(std::string(5000, '\0'), command, &status).substr(0, 70),
              "rsync: the other end of the data channel does not run this program: \"\\");
    EXPECT_EQ(status, 12);
    EXPECT_EQ(peerSays("", command, &status),
              "rsync: the other end of the data channel closed it before the transfer\n");
    EXPECT_EQ(status, 12);
  }
}

TEST(Peer, StockRsyncAtTheOtherEndIsAProtocolError) {
  Channel channel = pipeChannel();
  ProgramRun stock({"/usr/bin/rsync", "--server", "--sender", "-e.iLsfxCIvu", "-a", ".", "/etc"});
  stock.setInput(channel.server.in.get());
  stock.setOutput(channel.server.out.get());
  stock.start();
  const std::string in = std::to_string(channel.client.in.get());
  const std::string out = std::to_string(channel.client.out.get());
  ProgramRun run({builtRsync(), "-a", "--fdin", in, "--fdout", out, "0.0.0.0:/", "/nowhere"});
  run.inherit(channel.client.in.get());
  run.inherit(channel.client.out.get());
  run.start();
  channel = {};
  EXPECT_EQ(run.exitStatus(10), 12);
  EXPECT_NE(run.err().find("rsync: the other end of the data channel"), std::string::npos);
  EXPECT_NE(stock.exitStatus(10), 0);
}

TEST(Peer, UnusableCapabilitiesAreRefusedByTheServer) {
  int status = 0;
  const std::string said = peerSays("QXRSYNC 2 - 0\nCAPABILITIES .i;rm\n", serverCommand, &status);
  EXPECT_EQ(status, 12);
  EXPECT_NE(said.find("\"CAPABILITIES .i;rm\""), std::string::npos) << said;
}

namespace {

// What a stock server that is this script is told, a line a word.
std::string wordsForStock(const std::string& script) {
  TempTree tree;
  const std::string program = programWithStock(tree, script);
  Channel channel = pipeChannel();
  ProgramRun run({program, "--server", "--sender", "-ESHa", "--numeric-ids", "--delete", ".", "/"});
  run.setInput(channel.server.in.get());
  run.setOutput(channel.server.out.get());
  run.start();
  channel.server = {};
  const std::string words = "QXRSYNC 2 - 0\nCAPABILITIES .iLsf\n";
  EXPECT_EQ(::write(channel.client.out.get(), words.data(), words.size()),
            static_cast<ssize_t>(words.size()));
  EXPECT_EQ(run.exitStatus(10), 0) << run.err();
  std::string heard(4096, '\0');
  size_t size = 0;
  ssize_t count = 0;
  while ((count = ::read(channel.client.in.get(), heard.data() + size, heard.size() - size)) > 0)
    size += static_cast<size_t>(count);
  heard.resize(size);
  return heard.substr(heard.find('\n') + 1);
}

const char kSayWords[] = "for a in \"$@\"; do echo \"<$a>\"; done\nexit 0\n";

}  // namespace

TEST(Server, RunsStockWithWhatWasAgreed) {
  EXPECT_EQ(wordsForStock(kSayWords),
            "<--server>\n<--sender>\n<-e.iLsf>\n<-ESHa>\n<--numeric-ids>\n<--delete>\n<.>\n</>\n");
}

// The client must know what is left out.
TEST(Server, HasStockTellTheClientOfItsErrorsWhereItWouldNot) {
  EXPECT_EQ(wordsForStock(kSayWords + std::string("msgs2stderr\0no-msgs2stderr\0", 27)),
            "<--server>\n<--sender>\n<--no-msgs2stderr>\n<-e.iLsf>\n<-ESHa>\n<--numeric-ids>\n"
            "<--delete>\n<.>\n</>\n");
}

TEST(Status, OfStockIsPassedOnWithVanishedFilesAsPartial) {
  TempTree tree({dirAt("to")});
  for (const auto& [stock, ours] : {std::pair{0, 0},
                                    {1, 1},
                                    {11, 11},
                                    {12, 12},
                                    {20, 20},
                                    {23, 23},
                                    {24, 23},
                                    {25, 25},
                                    {30, 30},
                                    {127, 127}}) {
    const std::string program = programWithStock(tree, "exit " + std::to_string(stock) + "\n");
    Channel channel = pipeChannel();
    ProgramRun server(
        {program, "--server", "--sender", "-ESHa", "--numeric-ids", "--delete", ".", "/"});
    server.setInput(channel.server.in.get());
    server.setOutput(channel.server.out.get());
    server.start();
    const std::string words = "QXRSYNC 2 AX 0\nCAPABILITIES -\n";
    ASSERT_GT(::write(channel.client.out.get(), words.data(), words.size()), 0);
    EXPECT_EQ(server.exitStatus(10), ours) << "server, stock " << stock;

    ProgramRun client({program, "-a", "--fdin", std::to_string(channel.client.in.get()), "--fdout",
                       std::to_string(channel.client.out.get()), "0.0.0.0:/", tree.path("to")});
    client.inherit(channel.client.in.get());
    client.inherit(channel.client.out.get());
    client.start();
    EXPECT_EQ(client.exitStatus(10), ours) << "client, stock " << stock;
  }
}

TEST(Status, DeathOfStockByASignalIsRepeated) {
  TempTree tree;
  for (const int number : {SIGKILL, SIGSEGV, SIGTERM, SIGPIPE}) {
    const std::string program = programWithStock(tree, "kill -" + std::to_string(number) + " $$\n");
    ProgramRun run({program, "--progress-bar", "-a", "x", "y"});
    run.start();
    EXPECT_EQ(run.exitStatus(10), 1000 + number);
  }
}

TEST(Signals, AreForwardedToStock) {
  TempTree tree;
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
    // In the background it may be ignored, which a shell's trap does not change.
    ::signal(number, SIG_DFL);
    const std::string program =
        programWithStock(tree, "trap 'exit " + std::to_string(40 + number) + "' " +
                                   std::to_string(number) + "\ntouch " + tree.path("ready") +
                                   "\ni=0; while [ $i -lt 100 ]; do sleep 0.1; i=$((i+1)); done\n");
    ProgramRun run({program, "--progress-bar", "-a", "x", "y"});
    run.start();
    for (int i = 0; i < 1000 && !std::filesystem::exists(tree.path("ready")); ++i) ::usleep(10000);
    std::filesystem::remove(tree.path("ready"));
    signalOne(run.pid(), number);
    EXPECT_EQ(run.exitStatus(10), 40 + number);
  }
}
