#include <unistd.h>

#include <exception>
#include <string>
#include <vector>

#include "share/rsync/failure.h"
#include "share/rsync/options.h"
#include "share/rsync/run.h"
#include "share/rsync/stock.h"

namespace {

int run(const std::vector<std::string>& arguments) {
  const qxrsync::Options options = qxrsync::parseOptions(arguments);
  switch (options.mode) {
    case qxrsync::Mode::kClient:
      return qxrsync::runClient(options);
    case qxrsync::Mode::kServer:
      return qxrsync::runServer(options);
    case qxrsync::Mode::kJoiner:
      ::_exit(qxrsync::runJoiner(options));  // closed in by now, and nothing is to be tidied up
    case qxrsync::Mode::kTracker:
      return engine::runTracker(options.tracker);
    case qxrsync::Mode::kUntouched:
      break;
  }
  qxrsync::becomeStock(arguments);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run({argv + 1, argv + argc});
  } catch (const qxrsync::Failure& failure) {
    qxrsync::complain(failure.what());
    return failure.status();
  } catch (const std::exception& error) {
    qxrsync::complain(error.what());
    return qxrsync::kExitSystem;
  }
}
