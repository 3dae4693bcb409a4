// Making the container that a server migrates into.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <set>

#include "framework/env_manager.h"
#include "framework/errors.h"
#include "framework/qxctl.h"
#include "migrate/command.h"
#include "migrate/deserializer_sys.h"
#include "migrate/private_area.h"
#include "migrate/stage.h"

namespace {

constexpr int kEveryStatusBit = 255;

bool exists(const std::string& path) { return QXL::fentryExists(path, 0) != 0; }

bool containerExists(unsigned int ctid) {
  qxctl_env_status_t status = {};
  return qxctl_get_env_status(ctid, &status, kEveryStatusBit) == 0 &&
         (status.mask & QXCTL_STATUS_EXISTS) != 0;
}

// The name of the configuration's OS template; empty for none.
std::string templateNameOf(const QXA::QXAEnvConfig& config) {
  std::optional<QXA::QXAOsTemplate> osTemplate;
  if (config.getOsTemplate(osTemplate) != 0 || !osTemplate) return "";
  return osTemplate->name;
}

bool hasQoS(const std::optional<std::set<QXL::QXLQoS>>& qoses, const char* name) {
  QXL::QXLQoS wanted;
  wanted.name = name;
  return qoses && qoses->count(wanted) != 0;
}

// Decides what to do with what an earlier, failed migration kept. Afterwards
// nothing is kept any more; `reuse` says whether the private area is there and is
// to be filled as it is. False when the kept area could not be moved back, with
// the error recorded.
bool settlePrivateArea(P2V::Stage& stage, const std::string& area, const std::string& templateName,
                       bool& reuse) {
  reuse = false;
  const std::string kept = P2V::keptArea(area);
  if (!exists(kept)) {
    reuse = exists(area);
    return true;
  }
  const std::string keptTemplate = P2V::readTemplateMarker(kept);
  if (exists(area) || (!templateName.empty() && keptTemplate != templateName)) {
    P2V::runCommand({"rm", "-rf", kept});
    return true;
  }
  if (std::rename(kept.c_str(), area.c_str()) != 0) {
    stage.context()->fsetLastError(-1, "Can't rename %s %s: %s", kept.c_str(), area.c_str(),
                                   std::strerror(errno));
    return false;
  }
  reuse = true;
  return true;
}

}  // namespace

int DRAHN2VPSMigrateDeserializerSys::createDstSrv() {
  return P2V::runStage(*this, [&](P2V::Stage& stage) {
    const P2V::ParamsPtr params = P2V::p2vParams(getParams());
    if (!params) return stage.fail("%s", P2V::kNoParams);
    if (!params->options.config) return stage.fail("CT config was not specified");
    QXA::QXAEnvConfig& config = *params->options.config;
    if (!checkConfig(stage, *params) || !setDefaultPaths(stage, config)) return stage.end();

    const std::string id = P2V::containerIdText(*params);
    std::string area;
    if (config.getVEPrivate(P2V::containerId(*params), area) != 0 || area.empty()) {
      return stage.fail("empty VE_PRIVATE");
    }
    const std::string templateName = templateNameOf(config);
    bool reuse = false;
    if (!settlePrivateArea(stage, area, templateName, reuse)) return stage.end();

    const std::string path = "/etc/sysconfig/qx-scripts/" + id + ".conf";
    // From here on there is something for finish to remove.
    created_ = true;

    if (!assignAddresses(stage, config)) return stage.end();
    const QXA::QXAEnvConfigBashParser writer{QXL::QXLVocCacheLocal()};
    if (writer.write(path, config) != 0) {
      return stage.fail("can't write %s : %s", path.c_str(), QXL::getErrorMessage().c_str());
    }

    if (!reuse && !templateName.empty()) {
      if (!P2V::runOrRecord(stage, {"/usr/sbin/qxctl", "--skiplock", "create", id})) {
        return stage.end();
      }
      P2V::writeTemplateMarker(area, templateName);
    } else if (!reuse) {
      if (!P2V::runOrRecord(stage, {"/usr/sbin/mkqxfs", area})) return stage.end();
    }
    P2V::runOrRecord(stage, {"/usr/sbin/qxctl", "--skiplock", "mount", id});
    return stage.end();
  });
}

bool DRAHN2VPSMigrateDeserializerSys::checkConfig(
    P2V::Stage& stage, const QXA::QXAMigrateP2VSerializerParams& params) const {
  const auto refuse = [&](const char* text) {
    stage.context()->fsetLastError(-1, "%s", text);
    return false;
  };
  const QXA::QXAEnvConfig& config = *params.options.config;
  if (containerExists(P2V::containerId(params))) {
    return refuse(
        "Both CT private area and config file already exist. "
        "Refuse migrating into an already existing CT.");
  }
  std::optional<QXA::QXADistribution> distribution;
  if (config.getDistribution(distribution) != 0 || !distribution) {
    return refuse("CT OS distribution was not specified");
  }
  // Only their presence matters here; their values are the calculator's.
  std::optional<std::set<QXL::QXLQoS>> qoses;
  config.getQoSes(qoses);
  if (!hasQoS(qoses, "diskspace")) return refuse("\"diskspace\" was not specified in config");
  if (!hasQoS(qoses, "diskinodes")) return refuse("\"diskinodes\" was not specified in config");
  return true;
}

bool DRAHN2VPSMigrateDeserializerSys::setDefaultPaths(P2V::Stage& stage,
                                                      QXA::QXAEnvConfig& config) const {
  const auto manager = QXA::QXALibFunctionality::getQXAEnvMLocal();
  QXA::QXAVtSettings settings;
  if (!manager || manager->getVtSettings(settings) != 0) {
    stage.context()->fsetLastError(-1, "QXAEnvM getVtSettings failed");
    return false;
  }
  const auto defaultOf = [&](const char* key) -> std::optional<std::string> {
    const auto found = settings.defaults.find(key);
    if (found == settings.defaults.end()) return {};
    return found->second;
  };
  std::optional<std::string> path;
  config.getVERootVar(path);
  if (!path && (path = defaultOf("ve_root"))) config.setVERootVar(path);
  path.reset();
  config.getVEPrivateVar(path);
  if (!path && (path = defaultOf("ve_private"))) config.setVEPrivateVar(path);
  return true;
}

bool DRAHN2VPSMigrateDeserializerSys::assignAddresses(P2V::Stage& stage,
                                                      QXA::QXAEnvConfig& config) const {
  std::optional<std::vector<QXA::QXANetVEth>> interfaces;
  config.getNetVEths(interfaces);
  if (!interfaces || interfaces->empty()) return true;
  typedef QXL::IPAutoAllocation::Director<QXA::IPAutoAllocation::Builder> Director;
  if (Director::assign(*interfaces, getAccessProvider()) != 0 ||
      config.setNetVEths(interfaces) != 0) {
    stage.context()->fsetLastError(-1, "%s", QXL::getErrorMessage().c_str());
    return false;
  }
  return true;
}
