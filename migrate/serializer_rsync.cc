// The rsync server on the physical server.
#include <fcntl.h>

#include "expand/strings.h"
#include "framework/errors.h"
#include "migrate/command.h"
#include "migrate/rsync_path.h"
#include "migrate/serializer_sys.h"
#include "migrate/stage.h"

namespace {

// The channel's descriptors are the child's standard input and output, and the
// start returns as soon as the program runs.
constexpr int kStartFlags = int{QXL::GenExecAsync} | QXL::GenExecInput | QXL::GenExecOutput;
static_assert(kStartFlags == 515);

constexpr int kNoTimeLimit = 0;

}  // namespace

int DRAHN2VPSMigrateSerializerSys::startRSyncServer(
    boost::intrusive_ptr<QXL::QXLChannelEndPrototype> channel) {
  return P2V::runStage(*this, [&](P2V::Stage& stage) {
    const int in = channel->getInputFd();
    const int out = channel->getOutputFd();
    fcntl(in, F_SETFD, 0);
    fcntl(out, F_SETFD, 0);

    rsync_.reset();
    rsync_ = std::make_unique<QXL::HWExec>(P2V::kRunnerBytes);
    rsync_->setfd(QXL::GenExecInput, in);
    rsync_->setfd(QXL::GenExecOutput, out);

    stage.context()->freportProgress("Starting rsync...");
    // No exclude options: the receiving rsync sends them over its protocol.
    const std::vector<std::string> words = {P2V::rsyncPath(), "--server", "--sender", "-ESHa",
                                            "--numeric-ids",  "--delete", ".",        "/"};
    const P2V::Argv argv(words);
    if (rsync_->execAsync(kStartFlags, argv.get(), kNoTimeLimit) != 0) {
      return stage.fail("Serializer can't execute '%s'", Expand::join_argv(argv.get()).c_str());
    }
    return stage.end();
  });
}

int DRAHN2VPSMigrateSerializerSys::waitRSyncServer() {
  return P2V::runStage(*this, [&](P2V::Stage& stage) {
    if (!rsync_) return stage.end();
    const int status = rsync_->wait();
    if (!P2V::rsyncEndedWell(status)) {
      return stage.fail("Serializer rsync returned a non-successful status: %d, %s", status,
                        QXL::getErrorMessage().c_str());
    }
    rsync_.reset();
    return stage.end();
  });
}

int DRAHN2VPSMigrateSerializerSys::startRSyncServer2(
    boost::intrusive_ptr<QXL::QXLChannelEndPrototype> channel) {
  return startRSyncServer(channel);
}

int DRAHN2VPSMigrateSerializerSys::waitRSyncServer2() { return waitRSyncServer(); }
