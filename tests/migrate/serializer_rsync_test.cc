#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>

#include "workers.h"

using namespace fixtures;
using namespace test_support;
using testing::ElementsAre;

namespace {

const char kServer[] = " --server --sender -ESHa --numeric-ids --delete . /";

// An rsync whose server does what the script says.
ScratchHost hostWithRsync(const std::string& script) {
  ScratchHost host;
  host.tool(kRsync, {.script = "if [ \"$1\" = --server ]; then\n" + script + "\nfi"});
  return host;
}

// A source whose worker is initialised, and the ends of its channel.
struct Sending : Source {
  Sending() {
    const ParamsPtr params = newParams();
    params->options.excludes = {"/tmp/*"};
    const Served served = start(params);
    EXPECT_EQ(served.code, 0) << served.text;
  }
  Served startServer(const std::string& stage = "startRSyncServer") {
    return channelStage(stage, toServer.end[0], fromServer.end[1]);
  }
  // What the server wrote until it ended.
  std::string received() {
    std::string text;
    char buffer[100];
    ssize_t count;
    while ((count = read(fromServer.end[0], buffer, sizeof buffer)) > 0) {
      text.append(buffer, static_cast<size_t>(count));
    }
    return text;
  }
  Pipe toServer, fromServer;
};

bool isRunning(int pid) { return kill(pid, 0) == 0; }

int pidIn(const std::string& path) { return std::stoi(readFile(path)); }

void waitForFile(const std::string& path) {
  for (int i = 0; i < 500 && access(path.c_str(), F_OK) != 0; ++i) usleep(10000);
}

// Writes its pid and sleeps.
const char kSleeper[] = "echo $$ > /tmp/pid.new; mv /tmp/pid.new /tmp/pid; exec sleep 100";

}  // namespace

TEST(SourceRsync, ServesTheRootOverTheChannelsDescriptors) {
  for (const std::string number : {"", "2"}) {
    ScratchHost host = hostWithRsync("read line; echo \"got $line\"");
    host.run([&] {
      Sending source;
      host.clearCalls();
      const Served started = source.startServer("startRSyncServer" + number);
      EXPECT_EQ(started.code, 0) << started.text;
      EXPECT_THAT(started.lines, ElementsAre("Starting rsync..."));
      ASSERT_EQ(write(source.toServer.end[1], "request\n", 8), 8);
      EXPECT_EQ(source.received(), "got request\n");
      EXPECT_EQ(source.request("waitRSyncServer" + number).code, 0);
      // No exclude options here, whatever the parameters exclude.
      EXPECT_THAT(host.calls(), ElementsAre(call(std::string(kRsync) + kServer)));
    });
  }
}

TEST(SourceRsync, DescriptorsGoWithTheChannelOnceRsyncHasThem) {
  hostWithRsync("cat").run([] {
    Sending source;
    const int in = source.toServer.end[0];
    EXPECT_EQ(source.startServer().code, 0);
    EXPECT_EQ(fcntl(in, F_GETFD), -1);
    close(source.toServer.end[1]);
    EXPECT_EQ(source.request("waitRSyncServer").code, 0);
  });
}

TEST(SourceRsync, StartReturnsWhileTheServerRuns) {
  hostWithRsync(kSleeper).run([] {
    Sending source;
    EXPECT_EQ(source.startServer().code, 0);
    waitForFile("/tmp/pid");
    EXPECT_TRUE(isRunning(pidIn("/tmp/pid")));
  });
}

TEST(SourceRsync, WaitWithoutAServerSucceedsAtOnce) {
  serverHost().run([] {
    Sending source;
    EXPECT_EQ(source.request("waitRSyncServer").code, 0);
    EXPECT_EQ(source.request("waitRSyncServer2").code, 0);
  });
}

TEST(SourceRsync, PartialTransferIsIntentionallyGood) {
  hostWithRsync("exit 23").run([] {
    Sending source;
    EXPECT_EQ(source.startServer().code, 0);
    EXPECT_EQ(source.request("waitRSyncServer").code, 0);
    // Nothing is stored any more.
    EXPECT_EQ(source.request("waitRSyncServer").code, 0);
  });
}

TEST(SourceRsync, OtherEndsAreReportedWithTheRawStatus) {
  const struct {
    const char* script;
    const char* text;
  } rows[] = {
      {"echo why >&2; exit 12", "3072, why\n"},
      {"echo why >&2; exit 24", "6144, why\n"},
      {"echo why >&2; kill -KILL $$", "9, why\n"},
  };
  for (const auto& row : rows) {
    hostWithRsync(row.script).run([&] {
      Sending source;
      EXPECT_EQ(source.startServer().code, 0);
      const Served served = source.request("waitRSyncServer");
      EXPECT_EQ(served.code, -1);
      EXPECT_EQ(served.text,
                "Serializer rsync returned a non-successful status: " + std::string(row.text));
      // It stays stored: a second wait says the same.
      EXPECT_EQ(source.request("waitRSyncServer2").text, served.text);
      EXPECT_EQ(source.request("finish").code, 0);
    });
  }
}

TEST(SourceRsync, ServerThatCannotBeStartedIsAnError) {
  hostWithRsync("exit 0").run([] {
    Sending source;
    ASSERT_EQ(unlink(kRsync), 0);
    const Served served = source.startServer();
    EXPECT_EQ(served.code, -1);
    EXPECT_EQ(served.text, "Serializer can't execute '" + std::string(kRsync) + kServer + "'");
    EXPECT_THAT(served.lines, ElementsAre("Starting rsync..."));
    // The runner that failed is stored; waiting for it fails as well.
    EXPECT_THAT(source.request("waitRSyncServer").text,
                testing::StartsWith("Serializer rsync returned a non-successful status: 32512, "));
  });
}

TEST(SourceRsync, FailedStartIsReplacedByTheNext) {
  ScratchHost host = hostWithRsync("exit 0");
  host.run([&] {
    Sending source;
    const std::string away = std::string(kRsync) + ".away";
    ASSERT_EQ(rename(kRsync, away.c_str()), 0);
    EXPECT_EQ(source.startServer().code, -1);
    ASSERT_EQ(rename(away.c_str(), kRsync), 0);
    const Pipe in, out;
    EXPECT_EQ(source.channelStage("startRSyncServer", in.end[0], out.end[1]).code, 0);
    EXPECT_EQ(source.request("waitRSyncServer").code, 0);
  });
}

TEST(SourceRsync, SecondStartReplacesTheFirstWithoutWaitingForIt) {
  hostWithRsync("if [ ! -e /tmp/pid ]; then " + std::string(kSleeper) + "; fi").run([] {
    Sending source;
    EXPECT_EQ(source.startServer().code, 0);
    waitForFile("/tmp/pid");
    const int first = pidIn("/tmp/pid");
    const auto begin = std::chrono::steady_clock::now();
    const Pipe in, out;
    EXPECT_EQ(source.channelStage("startRSyncServer2", in.end[0], out.end[1]).code, 0);
    EXPECT_EQ(source.request("waitRSyncServer2").code, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    EXPECT_FALSE(isRunning(first));
  });
}

TEST(SourceRsync, FinishEndsAServerThatStillRuns) {
  hostWithRsync(kSleeper).run([] {
    Sending source;
    EXPECT_EQ(source.startServer().code, 0);
    waitForFile("/tmp/pid");
    const int pid = pidIn("/tmp/pid");
    EXPECT_EQ(source.request("finish").code, 0);
    EXPECT_FALSE(isRunning(pid));
  });
}

TEST(SourceRsync, DestructionEndsAServerThatStillRuns) {
  hostWithRsync(kSleeper).run([] {
    int pid = 0;
    {
      Sending source;
      EXPECT_EQ(source.startServer().code, 0);
      waitForFile("/tmp/pid");
      pid = pidIn("/tmp/pid");
    }
    EXPECT_FALSE(isRunning(pid));
  });
}

TEST(SourceFinish, WithoutAServerSucceeds) {
  serverHost().run([] {
    Sending source;
    EXPECT_EQ(source.request("finish").code, 0);
    EXPECT_EQ(Source().request("finish").code, 0);
  });
}
