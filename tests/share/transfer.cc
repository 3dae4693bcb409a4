#include "share_tests/transfer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <utility>

namespace {

struct Pipe {
  Fd read;
  Fd write;
};

Pipe makePipe() {
  int fds[2] = {-1, -1};
  EXPECT_EQ(::pipe2(fds, O_CLOEXEC), 0);
  return {Fd(fds[0]), Fd(fds[1])};
}

}  // namespace

std::string builtRsync() { return QX_RSYNC; }

std::string rsyncRunBy(const std::string& words, const std::string& path) {
  std::ofstream(path) << "#!/bin/sh\nexec " << words << " " << builtRsync() << " \"$@\"\n";
  EXPECT_EQ(::chmod(path.c_str(), 0700), 0);
  return path;
}

Channel pipeChannel() {
  Pipe down = makePipe();
  Pipe up = makePipe();
  return {{std::move(down.read), std::move(up.write)}, {std::move(up.read), std::move(down.write)}};
}

Channel socketChannel(int bufferSize) {
  int fds[2] = {-1, -1};
  EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
  for (const int fd : fds) {
    if (bufferSize == 0) break;
    EXPECT_EQ(::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &bufferSize, sizeof bufferSize), 0);
  }
  Fd client(fds[0]);
  Fd server(fds[1]);
  Channel channel;
  channel.client.out = client.duplicate();
  channel.client.in = std::move(client);
  channel.server.out = server.duplicate();
  channel.server.in = std::move(server);
  return channel;
}

RelayedChannel relayedChannel() {
  RelayedChannel relayed;
  Channel first = pipeChannel();   // client to test
  Channel second = pipeChannel();  // test to server
  relayed.ends.client = std::move(first.client);
  relayed.toClient = std::move(first.server);
  relayed.ends.server = std::move(second.server);
  relayed.toServer = std::move(second.client);
  return relayed;
}

Transfer::Transfer(std::string source, std::string destination,
                   std::vector<std::string> moreClientArguments)
    : source_(std::move(source)),
      destination_(std::move(destination)),
      more_(std::move(moreClientArguments)),
      serverProgram_(builtRsync()),
      clientProgram_(builtRsync()) {}

void Transfer::start(Channel channel) {
  server_ = std::make_unique<ProgramRun>(std::vector<std::string>{
      serverProgram_, "--server", "--sender", "-ESHa", "--numeric-ids", "--delete", ".", source_});
  server_->setInput(channel.server.in.get());
  server_->setOutput(channel.server.out.get());
  server_->start();

  std::vector<std::string> arguments = {clientProgram_,
                                        "-ESHa",
                                        "--numeric-ids",
                                        "--delete",
                                        "--progress-bar",
                                        "--fdin",
                                        std::to_string(channel.client.in.get()),
                                        "--fdout",
                                        std::to_string(channel.client.out.get()),
                                        "0.0.0.0:/",
                                        destination_};
  arguments.insert(arguments.end(), more_.begin(), more_.end());
  client_ = std::make_unique<ProgramRun>(std::move(arguments));
  client_->inherit(channel.client.in.get());
  client_->inherit(channel.client.out.get());
  if (leak_) {
    client_->inherit(channel.server.in.get());
    client_->inherit(channel.server.out.get());
  }
  client_->start();
}

void Transfer::expectBothEndWith(int status, int seconds) {
  EXPECT_EQ(client_->exitStatus(seconds), status) << "client: " << client_->err();
  EXPECT_EQ(server_->exitStatus(seconds), status) << "server: " << server_->err();
}

void transfer(const std::string& source, const std::string& destination,
              std::vector<std::string> moreClientArguments, int status) {
  Transfer copy(source, destination, std::move(moreClientArguments));
  copy.start(pipeChannel());
  copy.expectBothEndWith(status);
}
