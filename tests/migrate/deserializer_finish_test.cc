// The ways a migration ends on the node.
#include <unistd.h>

#include <filesystem>

#include "workers.h"

namespace fs = std::filesystem;
using namespace fixtures;
using namespace test_support;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const char kUmount[] = "/usr/sbin/qxctl --skiplock umount 101";
const char kConvert[] = "/usr/sbin/qxctl --skiplock convert 101";
const char kDestroy[] = "/usr/sbin/qxctl --skiplock destroy 101";

// A destination that has come a certain way.
struct Ending : DirectDestination {
  explicit Ending(const ScratchHost& scratchHost, const ParamsPtr& parameters = containerParams())
      : host(scratchHost), params(parameters) {
    EXPECT_EQ(init(params).code, 0);
  }
  Ending& lock() {
    EXPECT_EQ(call([](auto& w) { return w.lockVPS(); }).text, "");
    EXPECT_TRUE(fs::exists(kLock));
    return *this;
  }
  Ending& create() {
    EXPECT_EQ(call([](auto& w) { return w.createDstSrv(); }).text, "");
    return *this;
  }
  Ending& tune() {
    EXPECT_EQ(call([](auto& w) { return w.tuneDstSrv(); }).text, "");
    return *this;
  }
  Served finish() {
    host.clearCalls();
    return call([](auto& w) { return w.finish(); });
  }
  // The base was finished as well: it has dropped the parameters.
  bool baseFinished() {
    return call([](auto& w) { return w.lockVPS(); }).text == "p2v_params not init";
  }

  const ScratchHost& host;
  ParamsPtr params;
};

ParamsPtr keepingParams() {
  const ParamsPtr params = containerParams();
  params->options.keepOnFailure = true;
  return params;
}

}  // namespace

TEST(DestinationFinish, WithoutTheLockUnmountsAndLeavesEverythingElse) {
  ScratchHost host = nodeHost();
  host.dir("/run/qx/lock");
  host.run([&] {
    makeEntry("/", fileAt(kLock, "1\nother\n"));
    Ending ending(host);
    EXPECT_EQ(ending.call([](auto& w) { return w.lockVPS(); }).text,
              "Unable to lock CT 101 already locked by process #1");
    EXPECT_EQ(ending.result, -1);
    // Even when there is a container.
    ending.create();
    ending.finish();
    EXPECT_EQ(ending.result, 0);
    EXPECT_TRUE(ending.leftOpen);
    EXPECT_THAT(host.calls(), ElementsAre(call(kUmount)));
    EXPECT_EQ(readFile(kLock), "1\nother\n");
    EXPECT_FALSE(ending.baseFinished());
  });
}

TEST(DestinationFinish, WithoutAContainerUnlocks) {
  ScratchHost host = nodeHost();
  host.run([&] {
    Ending ending(host);
    ending.lock().finish();
    EXPECT_EQ(ending.result, 0);
    EXPECT_TRUE(ending.leftOpen);
    EXPECT_THAT(host.calls(), ElementsAre(call(kUmount)));
    EXPECT_FALSE(fs::exists(kLock));
    EXPECT_FALSE(ending.baseFinished());
  });
}

TEST(DestinationFinish, AfterTuningConvertsAndUnlocks) {
  ScratchHost host = nodeHost();
  host.run([&] {
    Ending ending(host);
    ending.lock().create().tune().finish();
    EXPECT_EQ(ending.result, 0);
    EXPECT_TRUE(ending.leftOpen);
    EXPECT_THAT(host.calls(), ElementsAre(call(kUmount), call(kConvert)));
    EXPECT_FALSE(fs::exists(kLock));
    EXPECT_TRUE(fs::exists(kArea));
    EXPECT_TRUE(fs::exists(kConf));
    EXPECT_FALSE(ending.baseFinished());
  });
}

TEST(DestinationFinish, AfterTuningWithoutTheLockConverts) {
  ScratchHost host = nodeHost();
  host.run([&] {
    Ending ending(host);
    ending.create().tune().finish();
    EXPECT_THAT(host.calls(), ElementsAre(call(kUmount), call(kConvert)));
    EXPECT_EQ(ending.result, 0);
    EXPECT_FALSE(ending.baseFinished());
  });
}

TEST(DestinationFinish, AfterAFailureDestroysTheContainer) {
  ScratchHost host = nodeHost();
  host.run([&] {
    Ending ending(host);
    ending.lock().create();
    const Served served = ending.finish();
    EXPECT_EQ(served.text, "");
    EXPECT_EQ(ending.result, 0);
    EXPECT_FALSE(ending.leftOpen);
    EXPECT_THAT(host.calls(), ElementsAre(call(kUmount), call(kDestroy)));
    EXPECT_FALSE(fs::exists(kLock));
    EXPECT_TRUE(ending.baseFinished());
  });
}

TEST(DestinationFinish, LockIsHeldWhileTheContainerIsConvertedOrDestroyed) {
  for (const bool tuned : {false, true}) {
    ScratchHost host = nodeHost();
    // Tells for each call whether the lock is there, and whose it is.
    host.tool(kQxctl, {.script = "echo \"$2 $(head -n 1 " + std::string(kLock) +
                                 " 2>/dev/null)\" >> /tmp/locks; mkdir -p " + kArea});
    host.run([&] {
      Ending ending(host);
      ending.lock().create();
      if (tuned) ending.tune();
      ASSERT_EQ(unlink("/tmp/locks"), 0);
      ending.finish();
      const std::string pid = std::to_string(getpid());
      EXPECT_EQ(readFile("/tmp/locks"),
                "umount " + pid + (tuned ? "\nconvert " : "\ndestroy ") + pid + "\n");
      EXPECT_FALSE(fs::exists(kLock));
    });
  }
}

TEST(DestinationFinish, ContainerIsRemovedOnce) {
  ScratchHost host = nodeHost();
  host.run([&] {
    Ending ending(host);
    ending.lock().create().finish();
    EXPECT_EQ(ending.init(containerParams()).code, 0);
    ending.finish();
    EXPECT_THAT(host.calls(), ElementsAre(call(kUmount)));
  });
}

TEST(DestinationFinish, FailedCommandsDoNotFailIt) {
  ScratchHost host = nodeHost();
  host.run([&] {
    Ending ending(host);
    ending.lock().create();
    ASSERT_EQ(unlink(kQxctl), 0);
    EXPECT_EQ(ending.finish().code, 0);
    EXPECT_FALSE(fs::exists(kLock));
  });
}

TEST(DestinationFinish, KeepsTheAreaAsideWhenTheParametersSaySo) {
  ScratchHost host = nodeHost();
  host.run([&] {
    Ending ending(host, keepingParams());
    ending.lock().create();
    makeEntry("/", fileAt(std::string(kArea) + "/data", "copied"));
    EXPECT_TRUE(fs::exists(kConf));
    EXPECT_EQ(ending.finish().code, 0);
    EXPECT_FALSE(ending.leftOpen);
    EXPECT_THAT(host.calls(), ElementsAre(call(kUmount)));
    EXPECT_FALSE(fs::exists(kArea));
    EXPECT_EQ(readFile(std::string(kArea) + ".migrated/data"), "copied");
    EXPECT_FALSE(fs::exists(kConf));
    EXPECT_FALSE(fs::exists(kLock));
    EXPECT_TRUE(ending.baseFinished());
  });
}

TEST(DestinationFinish, KeptAreaIsTakenBackByTheNextMigration) {
  ScratchHost host = nodeHost();
  host.run([&] {
    {
      Ending failed(host, keepingParams());
      failed.lock().create();
      makeEntry("/", fileAt(std::string(kArea) + "/data", "copied"));
      failed.finish();
    }
    Ending next(host);
    host.clearCalls();
    next.lock().create();
    EXPECT_THAT(host.calls(), ElementsAre(call("/usr/sbin/qxctl --skiplock mount 101")));
    EXPECT_EQ(readFile(std::string(kArea) + "/data"), "copied");
  });
}

TEST(DestinationFinish, AreaThatCannotBeMovedAsideDoesNotFailIt) {
  ScratchHost host = nodeHost();
  host.run([&] {
    Ending ending(host, keepingParams());
    ending.lock().create();
    makeEntry("/", fileAt(std::string(kArea) + ".migrated", "in the way"));
    EXPECT_EQ(ending.finish().code, 0);
    EXPECT_TRUE(fs::exists(kArea));
    EXPECT_FALSE(fs::exists(kConf));
  });
}

TEST(DestinationFinish, KeepingWithoutAPrivateAreaRemovesNothing) {
  for (const auto& area : {std::optional<std::string>(""), std::optional<std::string>()}) {
    ScratchHost host = nodeHost();
    host.run([&] {
      Ending ending(host, keepingParams());
      ending.lock().create();
      ending.params->options.config->setVEPrivateVar(area);
      EXPECT_EQ(ending.finish().code, 0);
      EXPECT_THAT(host.calls(), ElementsAre(call(kUmount)));
      EXPECT_TRUE(fs::exists(kArea));
      EXPECT_TRUE(fs::exists(kConf));
      EXPECT_FALSE(fs::exists(kLock));
      EXPECT_TRUE(ending.baseFinished());
    });
  }
}

TEST(DestinationFinish, KeepingWithoutAConfigurationStopsOnTheAssertion) {
  ScratchHost host = nodeHost();
  host.runExpectingAbort(
      [&] {
        Ending ending(host, keepingParams());
        ending.lock().create();
        ending.params->options.config.reset();
        ending.finish();
      },
      "px != 0");
}

TEST(DestinationFinish, WithoutParametersOnlyTheBaseIsFinished) {
  ScratchHost host = nodeHost();
  host.run([&] {
    DirectDestination destination;
    const Served served = destination.call([](auto& w) { return w.finish(); });
    EXPECT_EQ(served.code, -1);
    EXPECT_EQ(served.text, "p2v_params not init");
    EXPECT_EQ(destination.result, -1);
    EXPECT_FALSE(destination.leftOpen);
    EXPECT_THAT(host.calls(), IsEmpty());
  });
}

TEST(DestinationLock, IsTakenForTheParametersContainer) {
  ScratchHost host = nodeHost();
  host.run([&] {
    Destination destination;
    EXPECT_EQ(destination.start(containerParams()).code, 0);
    EXPECT_EQ(destination.request("lockVPS").code, 0);
    EXPECT_EQ(readFile(kLock), std::to_string(getpid()) + "\nmigrating\n");
    // Held by a live process now, be it this one.
    Destination second;
    EXPECT_EQ(second.start(containerParams()).code, 0);
    const Served served = second.request("lockVPS");
    EXPECT_EQ(served.code, -1);
    EXPECT_EQ(served.text,
              "Unable to lock CT 101 already locked by process #" + std::to_string(getpid()));
    EXPECT_EQ(second.request("finish").code, 0);
    EXPECT_TRUE(fs::exists(kLock));
    EXPECT_EQ(destination.request("finish").code, 0);
    EXPECT_FALSE(fs::exists(kLock));
  });
}
