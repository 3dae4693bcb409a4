#include "share/rsync/stock.h"

#include <unistd.h>

#include <climits>

#include "host/file.h"
#include "share/rsync/argument_vector.h"
#include "share/rsync/failure.h"

namespace qxrsync {

std::string ownPath() {
  std::string path(PATH_MAX, '\0');
  const ssize_t size = ::readlink("/proc/self/exe", path.data(), path.size());
  if (size <= 0) throw systemFailure(kExitSystem, "cannot read /proc/self/exe");
  path.resize(static_cast<size_t>(size));
  return path;
}

std::string stockPath() {
  const std::string self = ownPath();
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
  const std::string path = words.front();
  words.erase(words.begin());
  words.insert(words.end(), arguments.begin(), arguments.end());
  const ArgumentVector argv(path, words);
  ::execv(path.c_str(), argv.data());
  throw systemFailure(kExitSystem, "cannot run " + path);
}

}  // namespace qxrsync
