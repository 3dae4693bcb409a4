// One transfer: a server and a client of the built rsync program on a channel,
// with the command lines that the migration uses.
#ifndef QX_TESTS_SHARE_TRANSFER_H
#define QX_TESTS_SHARE_TRANSFER_H

#include <memory>
#include <string>
#include <vector>

#include "share_tests/program_run.h"

// Path of the program as built.
std::string builtRsync();

// Makes a script at that path, which has these words run it. Returns the path.
std::string rsyncRunBy(const std::string& words, const std::string& path);
// The words for a root that may not read everything.
inline constexpr char kMayNotReadEverything[] =
    "setpriv --inh-caps=-all --bounding-set=-dac_override,-dac_read_search";

struct ChannelEnd {
  Fd in;
  Fd out;
};
struct Channel {
  ChannelEnd client;
  ChannelEnd server;
};
Channel pipeChannel();
// One socket pair for both directions; bufferSize 0 leaves the kernel's.
Channel socketChannel(int bufferSize = 0);
// Pairs of pipes with a relay between them: whatever goes through one of the
// returned descriptors has to be carried on by the test.
struct RelayedChannel {
  Channel ends;
  ChannelEnd toServer;  // the test's side of the server's pipes
  ChannelEnd toClient;
};
RelayedChannel relayedChannel();

class Transfer {
 public:
  // source is served as it is written: "/tree/" sends the contents of /tree.
  Transfer(std::string source, std::string destination,
           std::vector<std::string> moreClientArguments = {});

  // Another copy of the program, for one with its own rsync.stock beside it.
  void useServer(const std::string& program) { serverProgram_ = program; }
  void useClient(const std::string& program) { clientProgram_ = program; }
  // The client also inherits the server's ends, as a careless caller's would.
  void leakServerEndsIntoClient() { leak_ = true; }

  void start(Channel channel);
  ProgramRun& client() { return *client_; }
  ProgramRun& server() { return *server_; }

  // Waits for both and expects this status of both.
  void expectBothEndWith(int status, int seconds = 60);

 private:
  std::string source_;
  std::string destination_;
  std::vector<std::string> more_;
  std::string serverProgram_;
  std::string clientProgram_;
  bool leak_ = false;
  std::unique_ptr<ProgramRun> server_;
  std::unique_ptr<ProgramRun> client_;
};

// start on a pipe channel and expectBothEndWith.
void transfer(const std::string& source, const std::string& destination,
              std::vector<std::string> moreClientArguments = {}, int status = 0);

#endif  // QX_TESTS_SHARE_TRANSFER_H
