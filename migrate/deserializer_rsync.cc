// The rsync client on the hardware node.
#include <fcntl.h>

#include <cassert>
#include <ctime>

#include "expand/strings.h"
#include "framework/runner.h"
#include "migrate/command.h"
#include "migrate/deserializer_sys.h"
#include "migrate/progress.h"
#include "migrate/rsync_path.h"
#include "migrate/stage.h"

namespace {

// Shared by all workers of the process and never reset.
P2V::ProgressThrottle progressThrottle;

}  // namespace

int DRAHN2VPSMigrateDeserializerSys::rSync(
    boost::intrusive_ptr<QXL::QXLChannelEndPrototype> channel) {
  return P2V::runStage(*this, [&](P2V::Stage& stage) {
    const P2V::ParamsPtr params = P2V::p2vParams(getParams());
    if (!params) return stage.fail("%s", P2V::kNoParams);
    std::string ve_root;
    params->options.config->getVERoot(P2V::containerId(*params), ve_root);
    assert(!ve_root.empty());

    const int in = channel->getInputFd();
    const int out = channel->getOutputFd();
    fcntl(in, F_SETFD, 0);
    fcntl(out, F_SETFD, 0);

    // The host in the source's name is never contacted: the descriptors are the
    // connection to the server.
    std::vector<std::string> words = {
        P2V::rsyncPath(),   "-ESHa",   "--numeric-ids",     "--delete",  "--progress-bar", "--fdin",
        std::to_string(in), "--fdout", std::to_string(out), "0.0.0.0:/", ve_root};
    for (const std::string& pattern : params->options.excludes) {
      words.push_back("--exclude=" + pattern);
    }

    QXL::GenExec runner(P2V::kRunnerBytes);
    // The progress bar redraws itself with carriage returns.
    runner.setChunkDivider("\n\r");
    if (runner.execComplexBegin(P2V::Argv(words).get(), QXL::GenExecOutput, P2V::kRunnerSeconds,
                                nullptr) != 0) {
      return stage.fail("Can't find/execute '%s'",
                        Expand::join(" ", words.begin(), words.end()).c_str());
    }
    while (runner.execComplexGet() != 0) {
      char* chunk = runner.gets(QXL::GenExecOutput);
      if (!chunk) break;
      reportProgress(chunk);
    }
    const int status = runner.execComplexEnd();
    if (!P2V::rsyncEndedWell(status)) {
      return stage.fail("rsync failed (code %d) : %s", status,
                        runner.getOutput(QXL::GenExecError).c_str());
    }
    reportRsyncProcent(100);
    return stage.end();
  });
}

int DRAHN2VPSMigrateDeserializerSys::rSync2(
    boost::intrusive_ptr<QXL::QXLChannelEndPrototype> channel) {
  return rSync(channel);
}

void DRAHN2VPSMigrateDeserializerSys::reportProgress(char* line) const {
  const std::optional<int> percent = progressThrottle.accept(line, std::time(nullptr));
  if (percent) reportRsyncProcent(*percent);
}

void DRAHN2VPSMigrateDeserializerSys::reportRsyncProcent(int percent) const {
  QXL::QXLRequestProgressData data("");
  data.description = "Rsync processing files";
  data.percent = percent;
  getContextLocal()->reportProgress(data);
}
