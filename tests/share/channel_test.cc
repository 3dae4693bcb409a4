// Channels of all kinds, with much to carry in both directions.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <thread>

#include "share_tests/transfer.h"
#include "share_tests/tree_picture.h"
#include "support/temp_tree.h"

using test_support::dirAt;
using test_support::fileAt;
using test_support::TempTree;

namespace {

std::string randomBytes(size_t size, unsigned seed) {
  std::mt19937_64 random(seed);
  std::string text(size, '\0');
  for (char& c : text) c = static_cast<char>(random());
  return text;
}

// Carries on bytes one small piece at a time until end of file.
void relay(Fd from, Fd to) {
  char buffer[4096];
  ssize_t count = 0;
  while ((count = ::read(from.get(), buffer, sizeof buffer)) > 0)
    for (ssize_t done = 0; done < count;) {
      const ssize_t written = ::write(to.get(), buffer + done, static_cast<size_t>(count - done));
      if (written < 0) return;
      done += written;
    }
}

class ChannelKinds : public testing::Test {
 protected:
  NoProcessLeftBehind processes_;
  TempTree tree_{dirAt("from"), dirAt("to")};
  const std::string from_ = tree_.path("from");
  const std::string to_ = tree_.path("to");

  // Many names, and contents that make the second pass send checksums one way
  // while data comes the other.
  void fill() {
    for (int d = 0; d < 40; ++d)
      for (int f = 0; f < 100; ++f)
        makeEntry(from_, fileAt("d" + std::to_string(d) + "/file number " + std::to_string(f),
                                std::string(static_cast<size_t>(f), 'x')));
    for (unsigned b = 0; b < 6; ++b)
      makeEntry(from_, fileAt("big" + std::to_string(b), randomBytes(8 << 20, b)));
  }

  void change() {
    for (int b = 0; b < 6; ++b) {
      std::ofstream file(from_ + "/big" + std::to_string(b),
                         std::ios::in | std::ios::out | std::ios::binary);
      for (int at = 0; at < 8 << 20; at += 100000) file.seekp(at).put('!');
      file.seekp(0, std::ios::end).write("more", 4);
    }
  }

  void copyTwiceOver(const std::function<Channel()>& make) {
    fill();
    for (int pass = 0; pass < 2; ++pass) {
      Transfer run(from_ + "/", to_);
      run.start(make());
      run.expectBothEndWith(0, 120);
      EXPECT_EQ(differences(to_, from_), "") << "pass " << pass;
      change();
    }
  }
};

}  // namespace

TEST_F(ChannelKinds, Pipes) { copyTwiceOver(pipeChannel); }

TEST_F(ChannelKinds, OneSocketForBothDirections) {
  copyTwiceOver([] { return socketChannel(); });
}

TEST_F(ChannelKinds, SocketWithTheSmallestBuffers) {
  copyTwiceOver([] { return socketChannel(1); });
}

TEST_F(ChannelKinds, OneDescriptorNumberForBothDirections) {
  fill();
  Channel channel = socketChannel();
  const std::string number = std::to_string(channel.client.in.get());
  ProgramRun server({builtRsync(), "--server", "--sender", "-ESHa", "--numeric-ids", "--delete",
                     ".", from_ + "/"});
  server.setInput(channel.server.in.get());
  server.setOutput(channel.server.in.get());
  server.start();
  ProgramRun client({builtRsync(), "-ESHa", "--numeric-ids", "--delete", "--fdin", number,
                     "--fdout", number, "0.0.0.0:/", to_});
  client.inherit(channel.client.in.get());
  client.start();
  channel = {};
  EXPECT_EQ(client.exitStatus(), 0) << client.err();
  EXPECT_EQ(server.exitStatus(), 0) << server.err();
  EXPECT_EQ(differences(to_, from_), "");
}

TEST_F(ChannelKinds, RelayWithSmallPipes) {
  fill();
  for (int pass = 0; pass < 2; ++pass) {
    // Between the two relays of each direction is a pipe of one page.
    RelayedChannel outer = relayedChannel();
    Channel inner = pipeChannel();
    for (const int fd : {inner.client.in.get(), inner.server.in.get()})
      ASSERT_EQ(::fcntl(fd, F_SETPIPE_SZ, 4096), 4096);
    std::thread threads[] = {
        std::thread(relay, std::move(outer.toServer.in), std::move(inner.server.out)),
        std::thread(relay, std::move(inner.client.in), std::move(outer.toClient.out)),
        std::thread(relay, std::move(outer.toClient.in), std::move(inner.client.out)),
        std::thread(relay, std::move(inner.server.in), std::move(outer.toServer.out))};
    Transfer run(from_ + "/", to_);
    run.start(std::move(outer.ends));
    run.expectBothEndWith(0, 120);
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(differences(to_, from_), "") << "pass " << pass;
    change();
  }
}

// Both ends hold a UNIX socket, but what is between them passes bytes only.
TEST_F(ChannelKinds, RelayBetweenSocketsThatLosesDescriptors) {
  fill();
  for (int pass = 0; pass < 2; ++pass) {
    Channel near = socketChannel();
    Channel far = socketChannel();
    const auto relayEnding = [](int from, int to) {
      char buffer[4096];
      ssize_t count = 0;
      while ((count = ::read(from, buffer, sizeof buffer)) > 0)
        if (::send(to, buffer, static_cast<size_t>(count), MSG_NOSIGNAL) != count) break;
      ::shutdown(to, SHUT_WR);
    };
    ChannelEnd nearRelay = std::move(near.server);
    ChannelEnd farRelay = std::move(far.client);
    std::thread threads[] = {std::thread(relayEnding, nearRelay.in.get(), farRelay.out.get()),
                             std::thread(relayEnding, farRelay.in.get(), nearRelay.out.get())};
    Transfer run(from_ + "/", to_);
    run.start({std::move(near.client), std::move(far.server)});
    run.expectBothEndWith(0, 120);
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(differences(to_, from_), "") << "pass " << pass;
    change();
  }
}

TEST_F(ChannelKinds, ProgressIsScannedAndEndsAtAHundred) {
  fill();
  // Takes a second or so, of which the bar has to show something.
  ASSERT_EQ(::truncate((from_ + "/big0").c_str(), 2L << 30), 0);
  Transfer run(from_ + "/", to_);
  run.start(pipeChannel());
  run.expectBothEndWith(0, 120);

  const std::string out = run.client().out();
  ASSERT_FALSE(out.empty());
  EXPECT_EQ(out.back(), '\n');
  std::vector<int> seen;
  for (size_t at = 0; at < out.size();) {
    const size_t end = out.find_first_of("\r\n", at);
    ASSERT_NE(end, std::string::npos);
    int percent = -1;
    int position = 0;
    EXPECT_EQ(std::sscanf(out.substr(at, end - at).c_str(), "%*s%d%% |%n", &percent, &position), 1);
    EXPECT_GT(position, 0);
    seen.push_back(percent);
    at = end + 1;
  }
  EXPECT_EQ(seen.back(), 100);
  EXPECT_GT(std::count_if(seen.begin(), seen.end(), [](int p) { return p > 0 && p < 100; }), 0);
}
