#include "share/rsync/stock.h"

#include <unistd.h>

#include "host/file.h"
#include "host/process.h"
#include "share/rsync/failure.h"

namespace qxrsync {

std::string stockPath() {
  const std::string self = host::ownProgram();
  std::string beside = self.substr(0, self.rfind('/')) + "/rsync.stock";
  if (::access(beside.c_str(), F_OK) == 0) return beside;
  const char* const usual = "/usr/bin/rsync";
  if (::access(usual, F_OK) == 0) return usual;
  throw Failure(kExitSystem, "stock rsync is neither at " + beside + " nor at " + usual +
                                 "; install the package rsync");
}

std::vector<std::string> stockCommand() {
  const std::string stock = stockPath();
  const std::string folder = stock.substr(0, stock.rfind('/'));
  const std::string libraries = folder + "/../../../../lib";
  const std::string loader = libraries + "/ld-linux-x86-64.so.2";
  if (folder + "/rsync.stock" != stock || ::access(loader.c_str(), X_OK) != 0) return {stock};
  return {loader, "--library-path", libraries, stock};
}

bool stockKnows(const std::string& option) {
  const std::string program = host::readFile(stockPath()).value_or("");
  return program.find(option.substr(option.find_first_not_of('-')) + '\0') != std::string::npos;
}

void becomeStock(const std::vector<std::string>& arguments) {
  std::vector<std::string> words = stockCommand();
  words.insert(words.end(), arguments.begin(), arguments.end());
  ::execv(words.front().c_str(), host::pointersTo(words).data());
  throw systemFailure(kExitSystem, "cannot run " + words.front());
}

}  // namespace qxrsync
