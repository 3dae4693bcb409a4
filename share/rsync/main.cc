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
      return qxrsync::runJoiner(options);
    case qxrsync::Mode::kUntouched:
      break;
  }
  qxrsync::becomeStock(arguments);
}

int complain(int status, const std::string& text) {
  const std::string line = "rsync: " + text + "\n";
  if (::write(STDERR_FILENO, line.data(), line.size()) < 0) return status;
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run({argv + 1, argv + argc});
  } catch (const qxrsync::Failure& failure) {
    return complain(failure.status(), failure.what());
  } catch (const std::exception& error) {
    return complain(qxrsync::kExitSystem, error.what());
  }
}
