// The stages of the physical server other than the copy.
#include "expand/runscript.h"
#include "expand/strings.h"
#include "frame/answer_fields.h"
#include "migrate/command.h"
#include "migrate/disk_space.h"
#include "migrate/serializer_sys.h"
#include "migrate/stage.h"
#include "quota/quota_dump.h"
#include "quota/quota_phys.h"

namespace {

// The partition whose quotas travel: the copy is of the whole root file system.
constexpr char kPartition[] = "/";

// Runs a du command and gives its output. False when there is none, with the error
// recorded: a du that could not read everything still prints a total, so only the
// output tells a failure.
bool runDu(P2V::Stage& stage, const std::string& command, std::string& output) {
  std::string errorOutput;
  // A process that ends while du is in its /proc directory makes some versions give
  // up without a total; the next run meets another moment.
  constexpr int kAttempts = 5;
  // du counts 1024-byte blocks unless the environment says otherwise. The variables
  // go only for this command; the process's own environment is everybody's.
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    Expand::runscript("unset DU_BLOCK_SIZE BLOCK_SIZE BLOCKSIZE POSIXLY_CORRECT; " + command,
                      output, errorOutput);
    if (!output.empty()) return true;
  }
  stage.context()->fsetLastError(-1, "Error get output '%s':\n%s", command.c_str(),
                                 errorOutput.c_str());
  return false;
}

}  // namespace

int DRAHN2VPSMigrateSerializerSys::stopServices() {
  return P2V::runStage(*this, [&](P2V::Stage& stage) {
    const P2V::ParamsPtr params = P2V::p2vParams(getParams());
    if (!params) return stage.fail("%s", P2V::kNoParams);
    if (params->options.services.empty()) return stage.end();
    stage.context()->freportProgress("Stopping services...");
    for (const QXL::QXLService& service : params->options.services) {
      // A service that does not stop must not stop the migration, so the status is
      // not looked at.
      P2V::runCommand({"/etc/init.d/" + service.name, "stop"});
    }
    return stage.end();
  });
}

int DRAHN2VPSMigrateSerializerSys::dumpQuota(std::string* text) {
  return P2V::runStage(*this, [&](P2V::Stage& stage) {
    stage.context()->freportProgress("Dumping quota...");
    std::string limits, graces;
    if (QuotaMgmt::quota_get_phys(kPartition, limits, graces) != 0) return stage.end();
    *text = QuotaMgmt::quota_dump_write(limits, graces);
    return stage.succeed(P2V::QuotaWriter(*text));
  });
}

int DRAHN2VPSMigrateSerializerSys::shutdownSrcSrv() {
  return P2V::runStage(*this, [](P2V::Stage& stage) { return stage.end(); });
}

int DRAHN2VPSMigrateSerializerSys::destroySrcSrv() {
  return P2V::runStage(*this, [](P2V::Stage& stage) { return stage.end(); });
}

int DRAHN2VPSMigrateSerializerSys::getUsageDiskSpace(long long* bytes) {
  return P2V::runStage(*this, [&](P2V::Stage& stage) {
    const P2V::ParamsPtr params = P2V::p2vParams(getParams());
    if (!params) return stage.fail("%s", P2V::kNoParams);
    std::string output;
    if (!runDu(stage, "du -s /", output)) return stage.end();
    const P2V::DuTotal total = P2V::parseDuTotal(output);
    long long excluded = 0;
    const std::vector<std::string>& excludes = params->options.excludes;
    for (const std::string& pattern : excludes) {
      if (Expand::is_shell_word(pattern)) continue;
      return stage.fail("Exclusion '%s' holds characters that cannot be passed to a command",
                        pattern.c_str());
    }
    if (!excludes.empty()) {
      if (!runDu(stage, P2V::duCommand(excludes), output)) return stage.end();
      // The first output's position serves the second one too; it is normally 0.
      excluded = P2V::parseDuGrandTotal(output, total.position);
    }
    *bytes = total.bytes - excluded;
    return stage.succeed(P2V::BytesWriter(*bytes));
  });
}
