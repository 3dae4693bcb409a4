// The beginning and the end of both workers.
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "expand/strings.h"
#include "frame/factories.h"
#include "framework/errors.h"
#include "migrate/command.h"
#include "migrate/ct_lock.h"
#include "migrate/deserializer_sys.h"
#include "migrate/dist_script.h"
#include "migrate/excludes.h"
#include "migrate/private_area.h"
#include "migrate/rsync_path.h"
#include "migrate/serializer_sys.h"
#include "migrate/stage.h"

namespace {

// The word in the lock file.
constexpr char kLockStatus[] = "migrating";

constexpr char kQxctl[] = "/usr/sbin/qxctl";
// This worker holds the container's lock itself.
constexpr char kSkipLock[] = "--skiplock";

bool isLinux() {
  struct utsname name;
  return uname(&name) == 0 && std::strcmp(name.sysname, "Linux") == 0;
}

}  // namespace

P2V::LocalSerializerFactory P2V::newLocalSerializerFactory() {
  return LocalSerializerFactory(
      new QXL::QXLFunctionalFactoryLocalImpl<QXL::QXLHaulSerializerPtr,
                                             DRAHN2VPSMigrateSerializerSys>);
}

P2V::LocalDeserializerFactory P2V::newLocalDeserializerFactory() {
  return LocalDeserializerFactory(
      new QXL::QXLFunctionalFactoryLocalImpl<QXL::QXLHaulDeserializerPtr,
                                             DRAHN2VPSMigrateDeserializerSys>);
}

DRAHN2VPSMigrateSerializerSys::DRAHN2VPSMigrateSerializerSys(
    boost::intrusive_ptr<QXL::QXLAccessProviderPrototype> access)  // NOLINT: part of the contract
    : QXLHaulSerializerBaseLocalPrototype(access) {}

DRAHN2VPSMigrateSerializerSys::~DRAHN2VPSMigrateSerializerSys() = default;

int DRAHN2VPSMigrateSerializerSys::init(
    boost::shared_ptr<QXL::QXLConnectionInfo> connection,
    boost::shared_ptr<QXL::QXLHaulSerializerBaseParams> baseParams) {
  return P2V::runStage(*this, [&](P2V::Stage& stage) {
    if (QXLHaulSerializerBaseLocalPrototype::init(connection, baseParams) != 0) return stage.end();
    const P2V::ParamsPtr params = P2V::p2vParams(getParams());
    if (!params) return stage.fail("%s", P2V::kNoParams);
    P2V::completeExcludes(params->options.excludes);
    if (!isLinux()) return stage.fail("This serializer can be run only on Linux systems");

    const std::vector<std::string> words = {P2V::rsyncPath(), "--version"};
    if (!P2V::endedWell(P2V::runCommand(words))) {
      return stage.fail("Error running command '%s'. Drovane rsync is not available in the system.",
                        Expand::join_argv(P2V::Argv(words).get()).c_str());
    }

    std::string missing;
    for (const QXL::QXLService& service : params->options.services) {
      if (!QXL::fentryExists("/etc/init.d/" + service.name, 0)) missing += service.name + " ";
    }
    if (!missing.empty()) return stage.fail("Unable to find service(s): %s", missing.c_str());
    return stage.end();
  });
}

int DRAHN2VPSMigrateSerializerSys::finish() {
  return P2V::runStage(*this, [&](P2V::Stage& stage) {
    rsync_.reset();
    return stage.end();
  });
}

DRAHN2VPSMigrateDeserializerSys::DRAHN2VPSMigrateDeserializerSys(
    boost::intrusive_ptr<QXL::QXLAccessProviderPrototype> access)  // NOLINT: part of the contract
    : QXLHaulSerializerBaseLocalPrototype(access) {}

DRAHN2VPSMigrateDeserializerSys::~DRAHN2VPSMigrateDeserializerSys() = default;

int DRAHN2VPSMigrateDeserializerSys::init(
    boost::shared_ptr<QXL::QXLConnectionInfo> connection,
    boost::shared_ptr<QXL::QXLHaulSerializerBaseParams> baseParams) {
  return P2V::runStage(*this, [&](P2V::Stage& stage) {
    if (QXLHaulSerializerBaseLocalPrototype::init(connection, baseParams) != 0) return stage.end();
    const P2V::ParamsPtr params = P2V::p2vParams(getParams());
    if (!params) return stage.fail("%s", P2V::kNoParams);
    P2V::completeExcludes(params->options.excludes);
    if (!params->options.config) return stage.end();
    std::optional<QXA::QXADistribution> distribution;
    params->options.config->getDistribution(distribution);
    if (P2V::findDistScript(distribution, P2V::kPostMigrate).empty()) {
      return stage.fail(
          "Couldn't find a proper post migration script for the given distribution '%s'. "
          "For the list of supported distributions look for *.conf files in the %s directory on "
          "the destination Hardware Node.",
          P2V::distributionText(distribution).c_str(), P2V::kDistsDirectory);
    }
    return stage.end();
  });
}

int DRAHN2VPSMigrateDeserializerSys::lockVPS() {
  return P2V::runStage(*this, [&](P2V::Stage& stage) {
    const P2V::ParamsPtr params = P2V::p2vParams(getParams());
    if (!params) return stage.fail("%s", P2V::kNoParams);
    locked_ = P2V::lockCT(P2V::containerId(*params), kLockStatus, stage.context()) == 0;
    return stage.end();
  });
}

int DRAHN2VPSMigrateDeserializerSys::finish() {
  return P2V::runStage(*this, [&](P2V::Stage& stage) {
    const P2V::ParamsPtr params = P2V::p2vParams(getParams());
    if (!params) {
      stage.context()->fsetLastError(-1, "%s", P2V::kNoParams);
      QXLHaulSerializerBaseLocalPrototype::finish();
      return stage.end();
    }
    const unsigned int ctid = P2V::containerId(*params);
    const std::string id = P2V::containerIdText(*params);
    P2V::runCommand({kQxctl, kSkipLock, "umount", id});
    if (tuned_) P2V::runCommand({kQxctl, kSkipLock, "convert", id});
    // The next two ways out leave the base unfinished and the command open. They
    // must stay so: the framework closes what is left open, and the worker can
    // still be asked for what it was initialised with.
    if (!locked_) return 0;
    if (tuned_ || !created_) return P2V::unlockCT(ctid);
    rollBack(*params);
    created_ = false;
    P2V::unlockCT(ctid);
    QXLHaulSerializerBaseLocalPrototype::finish();
    return stage.end();
  });
}

void DRAHN2VPSMigrateDeserializerSys::rollBack(
    const QXA::QXAMigrateP2VSerializerParams& params) const {
  const std::string id = P2V::containerIdText(params);
  if (!params.options.keepOnFailure) {
    P2V::runCommand({kQxctl, kSkipLock, "destroy", id});
    return;
  }
  std::string area;
  if (params.options.config->getVEPrivate(P2V::containerId(params), area) != 0 || area.empty()) {
    return;
  }
  std::rename(area.c_str(), P2V::keptArea(area).c_str());
  unlink(("/etc/qx/conf/" + id + ".conf").c_str());
}
