// The stages of the hardware node other than creation and copy.
#include <optional>

#include "expand/runscript.h"
#include "expand/strings.h"
#include "frame/answer_fields.h"
#include "frame/plugin.h"
#include "framework/logger.h"
#include "migrate/command.h"
#include "migrate/deserializer_sys.h"
#include "migrate/disk_space.h"
#include "migrate/dist_script.h"
#include "migrate/stage.h"
#include "quota/quota_dump.h"
#include "quota/quota_report.h"
#include "quota/quota_vz.h"

namespace {

constexpr int kDebugLevel = 4;
constexpr char kLogSource[] = "MigrateSys";

}  // namespace

int DRAHN2VPSMigrateDeserializerSys::restoreQuota(const std::string& dump) {
  return P2V::runStage(*this, [&](P2V::Stage& stage) {
    const P2V::ParamsPtr params = P2V::p2vParams(getParams());
    if (!params) return stage.fail("%s", P2V::kNoParams);
    // The section of graces is checked and not used: the reports of limits carry
    // the grace periods as well.
    std::string limits, graces;
    const std::string problem = QuotaMgmt::quota_dump_read(dump, limits, graces);
    if (!problem.empty()) return stage.fail("%s", problem.c_str());
    QuotaMgmt::Quotas users, groups;
    if (QuotaMgmt::limits_parse_phys(limits, &users, &groups) != 0) return stage.end();
    QuotaMgmt::quota_put_vz(P2V::containerId(*params), users, groups);
    return stage.end();
  });
}

int DRAHN2VPSMigrateDeserializerSys::tuneDstSrv() {
  return P2V::runStage(*this, [&](P2V::Stage& stage) {
    const P2V::ParamsPtr params = P2V::p2vParams(getParams());
    if (!params) return stage.fail("%s", P2V::kNoParams);
    std::optional<QXA::QXADistribution> distribution;
    params->options.config->getDistribution(distribution);
    const std::string script = P2V::findDistScript(distribution, P2V::kPostMigrate);
    if (script.empty()) {
      return stage.fail(
          "Couldn't find a proper post migration script for the given distribution '%s'",
          P2V::distributionText(distribution).c_str());
    }
    const std::string id = P2V::containerIdText(*params);
    if (!P2V::runOrRecord(stage, {"/usr/sbin/qxctl", "--skiplock", "runscript", id, script})) {
      return stage.end();
    }
    // A leading dot names a template made of packages. One that cannot be brought
    // up to date is no reason to throw the copy away, so the status is not looked at.
    std::optional<QXA::QXAOsTemplate> osTemplate;
    params->options.config->getOsTemplate(osTemplate);
    if (osTemplate && osTemplate->name.compare(0, 1, ".") == 0) {
      P2V::runCommand({"/usr/sbin/qxpkg", "sync_qxpackages", id});
    }
    tuned_ = true;
    return stage.end();
  });
}

int DRAHN2VPSMigrateDeserializerSys::startDstSrv() {
  beginCommand();
  return 0;
}

int DRAHN2VPSMigrateDeserializerSys::getFreeDiskSpace(long long* bytes) {
  return P2V::runStage(*this, [&](P2V::Stage& stage) {
    const P2V::ParamsPtr params = P2V::p2vParams(getParams());
    if (!params) return stage.fail("%s", P2V::kNoParams);
    const auto& config = params->options.config;
    std::string root;
    // The text names the other variable; it must stay as it is known.
    if (!config || config->getVERoot(P2V::containerId(*params), root) != 0 || root.empty()) {
      return stage.fail("VE_PRIVATE is not specified");
    }
    if (!Expand::is_shell_word(root)) {
      return stage.fail("VE_ROOT '%s' holds characters that cannot be passed to a command",
                        root.c_str());
    }
    const std::string command = "df " + root;
    std::string output, errorOutput;
    // As with du: blocks of 1024 bytes, whatever the environment says.
    if (Expand::runscript("unset DF_BLOCK_SIZE BLOCK_SIZE BLOCKSIZE POSIXLY_CORRECT; " + command,
                          output, errorOutput) != 0) {
      return stage.fail("Error running '%s':\n%s", command.c_str(), (output + errorOutput).c_str());
    }
    const std::string line = P2V::dfDataLine(output);
    QXL::logMessage(kDebugLevel, P2V::kPluginName, kLogSource, "getFreeDiskSpace",
                    "getFreeDiskSpace: %s", line.c_str());
    *bytes = P2V::parseDfLine(line);
    return stage.succeed(P2V::BytesWriter(*bytes));
  });
}
