// The two workers, driven as an agent drives them, on scratch hosts that have
// what they need.
#ifndef QX_TESTS_MIGRATE_WORKERS_H
#define QX_TESTS_MIGRATE_WORKERS_H

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "fixtures/served.h"
#include "frame/init.h"
#include "migrate/deserializer_sys.h"
#include "migrate/serializer_sys.h"
#include "support/scratch_host.h"

constexpr char kRsync[] = "/usr/local/share/qxlinmigrate/rsync";
constexpr char kQxctl[] = "/usr/sbin/qxctl";
constexpr char kMkqxfs[] = "/usr/sbin/mkqxfs";
constexpr char kQxpkg[] = "/usr/sbin/qxpkg";
constexpr char kDist[] = "/etc/sysconfig/qx-scripts/dists/debian-12.conf";
constexpr char kConf[] = "/etc/sysconfig/qx-scripts/101.conf";
constexpr char kArea[] = "/var/lib/qx/private/101";
constexpr char kVeRoot[] = "/var/lib/qx/root/101";
constexpr char kLock[] = "/run/qx/lock/101.lck";

// A call of a fake tool as ScratchHost::calls gives it; words are separated by
// blanks here.
inline std::string call(std::string words) {
  for (char& c : words) {
    if (c == ' ') c = '\t';
  }
  return words;
}

// A physical server: it has the rsync program.
inline test_support::ScratchHost serverHost() {
  test_support::ScratchHost host;
  host.tool(kRsync);
  return host;
}

// A hardware node: it has the container tools and knows Debian 12. Creating a
// container makes its private area.
inline test_support::ScratchHost nodeHost() {
  test_support::ScratchHost host;
  host.tool(kRsync).tool(kQxpkg);
  host.tool(kQxctl,
            {.script = "if [ \"$2\" = create ]; then mkdir -p " + std::string(kArea) + "; fi"});
  host.tool(kMkqxfs, {.script = "mkdir -p \"$1\""});
  host.dir("/etc/qx").symlink("/etc/qx/conf", "/etc/sysconfig/qx-scripts");
  host.file(kDist, "[GLOBAL]\nPOST_MIGRATE=debian.sh\n");
  return host;
}

// Parameters of a container that can be created on nodeHost, without a template.
inline fixtures::ParamsPtr containerParams() {
  const fixtures::ParamsPtr params = fixtures::newParams();
  params->options.config.reset(new QXA::QXAEnvConfig);
  params->options.config->setDistribution(QXA::QXADistribution{"debian", "12"});
  QXL::QXLQoS space, inodes;
  space.name = "diskspace";
  inodes.name = "diskinodes";
  params->options.config->setQoSes(std::set<QXL::QXLQoS>{space, inodes});
  return params;
}

// The workers behind their operators.
struct Source : fixtures::OperatorSession {
  Source() : OperatorSession((initLibrary(), factoryQXLinMigrateP2VSerializeOperator)) {}
};
struct Destination : fixtures::OperatorSession {
  Destination() : OperatorSession((initLibrary(), factoryQXLinMigrateP2VDeserializeOperator)) {}
};

// A worker without its operator, for what no request can bring about.
template <class Worker>
class Direct {
 public:
  Direct() : worker(new Worker(QXL::QXLOpSyncAccessPrototype::createInstance("", nullptr))) {}

  fixtures::Served init(const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& params) {
    return call([&](Worker& w) { return w.init(nullptr, params); });
  }
  // Calls the worker as a request of a user; `result` is what it returned.
  template <class Call>
  fixtures::Served call(Call stage, long uid = fixtures::kRoot) {
    return fixtures::serve(
        [&](const fixtures::MessagePtr&, const fixtures::MessagePtr&) {
          result = stage(*worker);
          // A command left open is closed by whoever serves the request.
          QXL::QXLRequestContextPrototype::getCurrent()->setLastError(kOpenCommand, "left open");
          leftOpen = worker->closeCommand() == kOpenCommand;
        },
        uid);
  }

  boost::intrusive_ptr<Worker> worker;
  int result = 0;
  bool leftOpen = false;  // the last call ended without ending its command

 private:
  static constexpr int kOpenCommand = -1000;
};

typedef Direct<DRAHN2VPSMigrateSerializerSys> DirectSource;
typedef Direct<DRAHN2VPSMigrateDeserializerSys> DirectDestination;

// The two ends of a pipe, which programs do not inherit.
struct Pipe {
  Pipe() { EXPECT_EQ(pipe2(end, O_CLOEXEC), 0); }
  int end[2];
};

#endif
