#include <unistd.h>

#include "workers.h"

using namespace fixtures;
using namespace test_support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

const char kText[] = "Rsync processing files";

ParamsPtr rsyncParams() {
  const ParamsPtr params = containerParams();
  params->options.config->setVERootVar(kVeRoot);
  params->options.excludes = {"/zz", "/tmp/*"};
  return params;
}

// A node whose rsync does what the script says.
ScratchHost hostWithRsync(const std::string& script) {
  ScratchHost host = nodeHost();
  host.tool(kRsync, {.script = script});
  return host;
}

struct Receiving : Destination {
  Receiving() {
    const Served served = start(rsyncParams());
    EXPECT_EQ(served.code, 0) << served.text;
  }
  Served rSync(const std::string& stage = "rSync") {
    in = fromSource.end[0];
    out = toSource.end[1];
    return channelStage(stage, in, out);
  }
  std::string commandLine() const {
    return std::string(kRsync) + " -ESHa --numeric-ids --delete --progress-bar --fdin " +
           std::to_string(in) + " --fdout " + std::to_string(out) + " 0.0.0.0:/ " + kVeRoot +
           " --exclude=/proc/* --exclude=/sys/* --exclude=/tmp/* --exclude=/var/log/lastlog"
           " --exclude=/var/qxagent.tmp --exclude=/zz";
  }
  Pipe fromSource, toSource;
  int in = -1;
  int out = -1;
};

}  // namespace

TEST(DestinationRsync, RunsTheClientOnTheChannelsDescriptors) {
  for (const char* stage : {"rSync", "rSync2"}) {
    // $6 and $8 are the descriptors.
    ScratchHost host =
        hostWithRsync("read line < /proc/self/fd/$6; echo \"got $line\" > /proc/self/fd/$8");
    host.run([&] {
      Receiving destination;
      ASSERT_EQ(write(destination.fromSource.end[1], "files\n", 6), 6);
      const Served served = destination.rSync(stage);
      EXPECT_EQ(served.code, 0) << served.text;
      EXPECT_THAT(host.calls(), ElementsAre(call(destination.commandLine())));
      char buffer[100];
      const ssize_t count = read(destination.toSource.end[0], buffer, sizeof buffer);
      EXPECT_EQ(std::string(buffer, count > 0 ? static_cast<size_t>(count) : 0), "got files\n");
    });
  }
}

TEST(DestinationRsync, EndsWithAHundredPercentWhateverItSaid) {
  hostWithRsync("").run([] {
    Receiving destination;
    const Served served = destination.rSync();
    EXPECT_EQ(served.code, 0) << served.text;
    EXPECT_THAT(served.percents, ElementsAre(Pair(kText, 100)));
    EXPECT_THAT(served.lines, IsEmpty());
  });
}

TEST(DestinationRsync, ProgressIsCutAtLineEndsAndReturnsAndThrottled) {
  // The first percent passes; the next come within 20 seconds of it.
  hostWithRsync("printf 'receiving file list\\n0 0%% |\\r17 45%% |##\\r20 46%% |###\\n'").run([] {
    Receiving destination;
    const Served served = destination.rSync();
    EXPECT_EQ(served.code, 0) << served.text;
    EXPECT_THAT(served.percents, ElementsAre(Pair(kText, 45), Pair(kText, 100)));
  });
}

TEST(DestinationRsync, ThrottleIsSharedByAllWorkersOfTheProcess) {
  hostWithRsync("printf '17 45%% |##\\n'").run([] {
    Receiving first;
    EXPECT_THAT(first.rSync().percents, ElementsAre(Pair(kText, 45), Pair(kText, 100)));
    Receiving second;
    EXPECT_THAT(second.rSync().percents, ElementsAre(Pair(kText, 100)));
  });
}

TEST(DestinationRsync, PartialTransferIsIntentionallyGood) {
  hostWithRsync("exit 23").run([] {
    Receiving destination;
    const Served served = destination.rSync();
    EXPECT_EQ(served.code, 0) << served.text;
    EXPECT_THAT(served.percents, ElementsAre(Pair(kText, 100)));
  });
}

TEST(DestinationRsync, OtherEndsAreReportedWithTheRawStatus) {
  const struct {
    const char* script;
    const char* text;
  } rows[] = {
      {"echo why >&2; exit 12", "rsync failed (code 3072) : why\n"},
      {"echo why >&2; exit 24", "rsync failed (code 6144) : why\n"},
      {"echo why >&2; kill -KILL $$", "rsync failed (code 9) : why\n"},
  };
  for (const auto& row : rows) {
    hostWithRsync(row.script).run([&] {
      Receiving destination;
      const Served served = destination.rSync();
      EXPECT_EQ(served.code, -1);
      EXPECT_EQ(served.text, row.text);
      EXPECT_THAT(served.percents, IsEmpty());
    });
  }
}

TEST(DestinationRsync, ClientThatCannotBeStartedIsAnError) {
  hostWithRsync("").run([] {
    Receiving destination;
    ASSERT_EQ(unlink(kRsync), 0);
    const Served served = destination.rSync();
    EXPECT_EQ(served.code, -1);
    EXPECT_EQ(served.text, "Can't find/execute '" + destination.commandLine() + "'");
  });
}

TEST(DestinationRsync, MissingRootStopsOnTheAssertion) {
  const ScratchHost host = nodeHost();
  host.runExpectingAbort(
      [] {
        DirectDestination destination;
        destination.init(containerParams());
        destination.call([](auto& w) { return w.rSync(nullptr); });
      },
      "!ve_root.empty()");
  host.runExpectingAbort(
      [] {
        DirectDestination destination;
        destination.init(newParams());
        destination.call([](auto& w) { return w.rSync(nullptr); });
      },
      "px != 0");
}
