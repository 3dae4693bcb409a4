#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "framework/env_manager.h"
#include "framework/errors.h"
#include "workers.h"

namespace fs = std::filesystem;
using namespace fixtures;
using namespace test_support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

const char kMarker[] = "/var/lib/qx/private/101/.ostemplate";
const char kKept[] = "/var/lib/qx/private/101.migrated";

const char kCreate[] = "/usr/sbin/qxctl --skiplock create 101";
const char kMount[] = "/usr/sbin/qxctl --skiplock mount 101";
const char kMakeArea[] = "/usr/sbin/mkqxfs /var/lib/qx/private/101";

ParamsPtr withTemplate(const std::string& name) {
  const ParamsPtr params = containerParams();
  params->options.config->setOsTemplate(QXA::QXAOsTemplate{name});
  return params;
}

ScratchHost& keep(ScratchHost& host, const std::string& templateName) {
  host.file(std::string(kKept) + "/data", "kept");
  if (!templateName.empty()) host.file(std::string(kKept) + "/.ostemplate", templateName);
  return host;
}

// Runs createDstSrv; whether a container counts as created is told by finish,
// which then destroys it.
struct Created {
  explicit Created(const ParamsPtr& params) {
    Destination destination;
    const Served started = destination.start(params);
    EXPECT_EQ(started.code, 0) << started.text;
    EXPECT_EQ(destination.request("lockVPS").code, 0);
    served = destination.request("createDstSrv");
    toRemove = destroyedBy(destination);
  }

  Served served;
  bool toRemove = false;

 private:
  static bool destroyedBy(Destination& destination) {
    const test_support::ScratchHost host;
    const std::size_t before = host.calls().size();
    destination.request("finish");
    const auto calls = host.calls();
    for (std::size_t i = before; i < calls.size(); ++i) {
      if (calls[i] == call("/usr/sbin/qxctl --skiplock destroy 101")) return true;
    }
    return false;
  }
};

// The calls of createDstSrv alone.
std::vector<std::string> createCalls(const ScratchHost& host) {
  std::vector<std::string> calls;
  for (const std::string& line : host.calls()) {
    if (line.find("umount") != std::string::npos || line.find("destroy") != std::string::npos)
      break;
    calls.push_back(line);
  }
  return calls;
}

void expectFailure(const Created& created, const std::string& text, bool toRemove) {
  EXPECT_EQ(created.served.code, -1);
  EXPECT_EQ(created.served.text, text);
  EXPECT_EQ(created.toRemove, toRemove);
}

}  // namespace

TEST(CreateDstSrv, WithATemplateTheContainerIsCreatedFromIt) {
  ScratchHost host = nodeHost();
  host.run([&] {
    const Created created(withTemplate("debian-12-x86"));
    EXPECT_EQ(created.served.code, 0) << created.served.text;
    EXPECT_TRUE(created.toRemove);
    EXPECT_THAT(createCalls(host), ElementsAre(call(kCreate), call(kMount)));
    EXPECT_EQ(readFile(kMarker), "debian-12-x86");
    struct stat info;
    ASSERT_EQ(stat(kMarker, &info), 0);
    EXPECT_EQ(info.st_mode & 07777u, 0644u);
  });
}

TEST(CreateDstSrv, WithoutATemplateAnEmptyAreaIsMade) {
  for (const bool emptyName : {false, true}) {
    ScratchHost host = nodeHost();
    host.run([&] {
      const Created created(emptyName ? withTemplate("") : containerParams());
      EXPECT_EQ(created.served.code, 0) << created.served.text;
      EXPECT_THAT(createCalls(host), ElementsAre(call(kMakeArea), call(kMount)));
      EXPECT_TRUE(fs::exists(kArea));
      EXPECT_FALSE(fs::exists(kMarker));
    });
  }
}

TEST(CreateDstSrv, ConfigurationIsWrittenWithTheHostsDefaultPlaces) {
  ScratchHost host = nodeHost();
  host.file("/etc/qx/qx.conf", "VE_ROOT=/vz/root/$VEID\nVE_PRIVATE=/vz/private/$VEID\n");
  host.run([&] {
    const Created created(containerParams());
    EXPECT_EQ(created.served.code, 0) << created.served.text;
    QXA::QXAEnvConfig config;
    ASSERT_EQ(QXA::QXAEnvConfigBashParser{QXL::QXLVocCacheLocal()}.read(kConf, config), 0);
    std::optional<std::string> path;
    config.getVERootVar(path);
    EXPECT_EQ(path, "/vz/root/$VEID");
    config.getVEPrivateVar(path);
    EXPECT_EQ(path, "/vz/private/$VEID");
    EXPECT_THAT(createCalls(host),
                ElementsAre(call("/usr/sbin/mkqxfs /vz/private/101"), call(kMount)));
  });
}

TEST(CreateDstSrv, PlacesOfTheConfigurationAreKept) {
  ScratchHost host = nodeHost();
  host.run([&] {
    const ParamsPtr params = containerParams();
    params->options.config->setVERootVar("/a/root");
    params->options.config->setVEPrivateVar("/a/private/$VEID");
    const Created created(params);
    EXPECT_EQ(created.served.code, 0) << created.served.text;
    QXA::QXAEnvConfig config;
    ASSERT_EQ(QXA::QXAEnvConfigBashParser{QXL::QXLVocCacheLocal()}.read(kConf, config), 0);
    std::optional<std::string> path;
    config.getVERootVar(path);
    EXPECT_EQ(path, "/a/root");
    EXPECT_THAT(createCalls(host),
                ElementsAre(call("/usr/sbin/mkqxfs /a/private/101"), call(kMount)));
  });
}

TEST(CreateDstSrv, WithoutAConfigurationIsRefused) {
  nodeHost().run([] { expectFailure(Created(newParams()), "CT config was not specified", false); });
  // A record as it was made, without even a container id.
  DirectDestination destination;
  EXPECT_EQ(destination.init(ParamsPtr(new QXA::QXAMigrateP2VSerializerParams)).code, 0);
  EXPECT_EQ(destination.call([](auto& worker) { return worker.createDstSrv(); }).text,
            "CT config was not specified");
}

TEST(CreateDstSrv, ExistingContainerIsRefused) {
  ScratchHost host = nodeHost();
  host.file(kConf, "VE_PRIVATE=/var/lib/qx/private/$VEID\n").dir(std::string(kArea) + "/fs");
  host.run([&] {
    // Before the distribution is looked at.
    DirectDestination destination;
    const ParamsPtr params = containerParams();
    EXPECT_EQ(destination.init(params).code, 0);
    params->options.config->setDistribution(std::nullopt);
    EXPECT_EQ(destination.call([](auto& worker) { return worker.createDstSrv(); }).text,
              "Both CT private area and config file already exist. "
              "Refuse migrating into an already existing CT.");
    EXPECT_THAT(host.calls(), IsEmpty());
  });
}

TEST(CreateDstSrv, MissingDistributionIsRefused) {
  nodeHost().run([] {
    DirectDestination destination;
    const ParamsPtr params = containerParams();
    EXPECT_EQ(destination.init(params).code, 0);
    params->options.config->setDistribution(std::nullopt);
    params->options.config->setQoSes(std::nullopt);
    EXPECT_EQ(destination.call([](auto& worker) { return worker.createDstSrv(); }).text,
              "CT OS distribution was not specified");
  });
}

TEST(CreateDstSrv, MissingDiskLimitsAreRefusedInOrder) {
  ScratchHost host = nodeHost();
  host.run([&] {
    QXL::QXLQoS space, inodes;
    space.name = "diskspace";
    inodes.name = "diskinodes";
    const ParamsPtr params = containerParams();
    params->options.config->setQoSes(std::nullopt);
    expectFailure(Created(params), "\"diskspace\" was not specified in config", false);
    params->options.config->setQoSes(std::set<QXL::QXLQoS>{inodes});
    expectFailure(Created(params), "\"diskspace\" was not specified in config", false);
    params->options.config->setQoSes(std::set<QXL::QXLQoS>{space});
    expectFailure(Created(params), "\"diskinodes\" was not specified in config", false);
    EXPECT_THAT(createCalls(host), IsEmpty());
    EXPECT_FALSE(fs::exists(kConf));
  });
}

TEST(CreateDstSrv, UnreadableHostSettingsAreAnError) {
  ScratchHost host = nodeHost();
  host.file("/etc/qx/qx.conf", "this is no setting\n");
  host.run([&] {
    Destination destination;
    EXPECT_EQ(destination.start(containerParams()).code, 0);
    EXPECT_EQ(destination.request("createDstSrv").text, "QXAEnvM getVtSettings failed");
    EXPECT_THAT(host.calls(), IsEmpty());
  });
}

TEST(CreateDstSrv, EmptyPrivateAreaIsRefused) {
  nodeHost().run([] {
    DirectDestination destination;
    const ParamsPtr params = containerParams();
    EXPECT_EQ(destination.init(params).code, 0);
    params->options.config->setVEPrivateVar("");
    EXPECT_EQ(destination.call([](auto& worker) { return worker.createDstSrv(); }).text,
              "empty VE_PRIVATE");
  });
}

TEST(CreateDstSrv, ChecksComeInTheirOrder) {
  ScratchHost host = nodeHost();
  host.file("/etc/qx/qx.conf", "this is no setting\n");
  host.run([] {
    const auto textOf = [](const std::function<void(QXA::QXAEnvConfig&)>& change) {
      DirectDestination destination;
      const ParamsPtr params = containerParams();
      EXPECT_EQ(destination.init(params).code, 0);
      change(*params->options.config);
      return destination.call([](auto& worker) { return worker.createDstSrv(); }).text;
    };
    // The disk limits before the host's settings, those before the private area.
    EXPECT_EQ(textOf([](auto& config) { config.setQoSes(std::nullopt); }),
              "\"diskspace\" was not specified in config");
    EXPECT_EQ(textOf([](auto& config) { config.setVEPrivateVar(""); }),
              "QXAEnvM getVtSettings failed");
  });
}

TEST(CreateDstSrv, ConfigurationIsThereWhenTheContainerIsCreatedAndTheMarkerIsNot) {
  ScratchHost host = nodeHost();
  host.tool(kQxctl, {.script = "[ -e " + std::string(kConf) + " ] && echo $2 conf >> /tmp/seen\n" +
                               "[ -e " + kMarker + " ] && echo $2 marker >> /tmp/seen\n" +
                               "mkdir -p " + kArea});
  host.run([] {
    Destination destination;
    EXPECT_EQ(destination.start(withTemplate("debian")).code, 0);
    EXPECT_EQ(destination.request("createDstSrv").code, 0);
    EXPECT_EQ(readFile("/tmp/seen"), "create conf\nmount conf\nmount marker\n");
  });
}

TEST(CreateDstSrv, KeptAreaIsSettledBeforeAddressesAreAssigned) {
  ScratchHost host = nodeHost();
  keep(host, "debian");
  host.run([&] {
    const ParamsPtr params = withTemplate("debian");
    QXA::QXANetVEth interface;
    interface.name = "eth0";
    interface.addresses = {QXL::QXLIPAddress("auto")};
    params->options.config->setNetVEths(std::vector<QXA::QXANetVEth>{interface});
    expectFailure(Created(params), "no address for eth0: IP_POOL is not set in /etc/qx/qx.conf",
                  true);
    EXPECT_FALSE(fs::exists(kKept));
    EXPECT_EQ(readFile(std::string(kArea) + "/data"), "kept");
  });
}

TEST(CreateDstSrv, ExistingAreaIsFilledAsItIs) {
  ScratchHost host = nodeHost();
  host.file(std::string(kArea) + "/data", "old");
  host.run([&] {
    const Created created(withTemplate("debian"));
    EXPECT_EQ(created.served.code, 0) << created.served.text;
    EXPECT_THAT(createCalls(host), ElementsAre(call(kMount)));
    EXPECT_EQ(readFile(std::string(kArea) + "/data"), "old");
    EXPECT_FALSE(fs::exists(kMarker));
    EXPECT_TRUE(created.toRemove);
  });
}

TEST(CreateDstSrv, KeptAreaOfTheSameTemplateIsMovedBack) {
  ScratchHost host = nodeHost();
  keep(host, "debian");
  host.run([&] {
    const Created created(withTemplate("debian"));
    EXPECT_EQ(created.served.code, 0) << created.served.text;
    EXPECT_THAT(createCalls(host), ElementsAre(call(kMount)));
    EXPECT_EQ(readFile(std::string(kArea) + "/data"), "kept");
    EXPECT_FALSE(fs::exists(kKept));
  });
}

TEST(CreateDstSrv, KeptAreaIsMovedBackForAConfigurationWithoutATemplate) {
  for (const std::string name : {"", "debian"}) {
    ScratchHost host = nodeHost();
    keep(host, name);
    host.run([&] {
      const Created created(containerParams());
      EXPECT_EQ(created.served.code, 0) << created.served.text;
      EXPECT_THAT(createCalls(host), ElementsAre(call(kMount)));
      EXPECT_EQ(readFile(std::string(kArea) + "/data"), "kept");
    });
  }
}

TEST(CreateDstSrv, KeptAreaOfAnotherTemplateIsRemoved) {
  // Names are compared as they stand, lengths included.
  for (const std::string name : {"redhat", "debia", "debian\n", "Debian", ""}) {
    ScratchHost host = nodeHost();
    keep(host, name);
    host.run([&] {
      const Created created(withTemplate("debian"));
      EXPECT_EQ(created.served.code, 0) << created.served.text;
      EXPECT_THAT(createCalls(host), ElementsAre(call(kCreate), call(kMount)));
      EXPECT_FALSE(fs::exists(kKept));
      EXPECT_FALSE(fs::exists(std::string(kArea) + "/data"));
      EXPECT_EQ(readFile(kMarker), "debian");
    });
  }
}

TEST(CreateDstSrv, KeptAreaBesideAnAreaIsRemovedAndTheContainerCreatedAnew) {
  ScratchHost host = nodeHost();
  keep(host, "debian");
  host.file(std::string(kArea) + "/data", "old");
  host.run([&] {
    const Created created(withTemplate("debian"));
    EXPECT_EQ(created.served.code, 0) << created.served.text;
    EXPECT_FALSE(fs::exists(kKept));
    // The area that was there is intentionally not taken as it is.
    EXPECT_THAT(createCalls(host), ElementsAre(call(kCreate), call(kMount)));
  });
}

TEST(CreateDstSrv, KeptAreaIsRemovedWithRm) {
  ScratchHost host = nodeHost();
  keep(host, "redhat");
  host.tool("/usr/bin/rm", {.status = 1});
  host.run([&] {
    const Created created(withTemplate("debian"));
    // Whether that worked is not looked at.
    EXPECT_EQ(created.served.code, 0) << created.served.text;
    EXPECT_THAT(createCalls(host), ElementsAre(call("/usr/bin/rm -rf " + std::string(kKept)),
                                               call(kCreate), call(kMount)));
  });
}

TEST(CreateDstSrv, KeptAreaThatCannotBeMovedIsAnError) {
  ScratchHost host = nodeHost();
  keep(host, "");
  host.symlink(kArea, "nowhere");
  host.run([&] {
    expectFailure(Created(containerParams()),
                  "Can't rename /var/lib/qx/private/101.migrated /var/lib/qx/private/101: "
                  "Not a directory",
                  false);
    EXPECT_THAT(createCalls(host), IsEmpty());
  });
}

TEST(CreateDstSrv, AddressesAreCompletedFromTheHostsPool) {
  ScratchHost host = nodeHost();
  host.file("/etc/qx/qx.conf", "IP_POOL=10.1.1.5-10.1.1.9/24\n");
  host.run([] {
    const ParamsPtr params = containerParams();
    QXA::QXANetVEth interface;
    interface.name = "eth0";
    interface.addresses = {QXL::QXLIPAddress("auto"), QXL::QXLIPAddress("192.168.1.1")};
    params->options.config->setNetVEths(std::vector<QXA::QXANetVEth>{interface});
    const Created created(params);
    EXPECT_EQ(created.served.code, 0) << created.served.text;
    EXPECT_THAT(readFile(kConf), HasSubstr("10.1.1.5/24"));
    EXPECT_THAT(readFile(kConf), HasSubstr("192.168.1.1"));
    EXPECT_THAT(readFile(kConf), testing::Not(HasSubstr("auto")));
  });
}

TEST(CreateDstSrv, AddressThatCannotBeAssignedIsTheFrameworksError) {
  ScratchHost host = nodeHost();
  host.run([&] {
    const ParamsPtr params = containerParams();
    QXA::QXANetVEth interface;
    interface.name = "eth0";
    interface.addresses = {QXL::QXLIPAddress("auto")};
    params->options.config->setNetVEths(std::vector<QXA::QXANetVEth>{interface});
    expectFailure(Created(params), "no address for eth0: IP_POOL is not set in /etc/qx/qx.conf",
                  true);
    EXPECT_THAT(createCalls(host), IsEmpty());
    EXPECT_FALSE(fs::exists(kConf));
    // Before the configuration is written, which would fail as well.
    makeEntry("/", dirAt(kConf));
    expectFailure(Created(params), "no address for eth0: IP_POOL is not set in /etc/qx/qx.conf",
                  true);
  });
}

TEST(CreateDstSrv, ConfigurationThatCannotBeWrittenIsAnError) {
  ScratchHost host = nodeHost();
  host.dir(kConf);
  host.run([&] {
    const Created created(containerParams());
    EXPECT_THAT(created.served.text, StartsWith("can't write " + std::string(kConf) + " : "));
    EXPECT_GT(created.served.text.size(), std::string("can't write  : ").size() + sizeof kConf - 1);
    EXPECT_TRUE(created.toRemove);
    EXPECT_THAT(createCalls(host), IsEmpty());
  });
}

TEST(CreateDstSrv, FailedCommandIsReportedWithItsErrorOutput) {
  const struct {
    const char* tool;
    const char* what;
    const char* osTemplate;
    const char* command;
  } rows[] = {
      {kQxctl, "create", "debian", kCreate},
      {kMkqxfs, kArea, "", kMakeArea},
      {kQxctl, "mount", "debian", kMount},
  };
  for (const auto& row : rows) {
    for (const std::string end : {"exit 3", "kill -KILL $$"}) {
      ScratchHost host = nodeHost();
      host.tool(row.tool, {.script = "case \"$*\" in *" + std::string(row.what) +
                                     "*) case $2 in umount) ;; *) echo why >&2; " + end +
                                     ";; esac;; esac; mkdir -p " + kArea});
      host.run([&] {
        const std::string status = end == "exit 3" ? "768" : "9";
        expectFailure(Created(withTemplate(row.osTemplate)),
                      "Deserializer command '" + std::string(row.command) +
                          "' returned a non-successful status: " + status +
                          ". Program error output follows:\nwhy\n",
                      true);
        EXPECT_EQ(createCalls(host).back(), call(row.command));
        EXPECT_EQ(fs::exists(kMarker), row.command == kMount);
      });
    }
  }
}
