#include "share/engine/problems.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "share/engine/records.h"
#include "share/rsync/failure.h"

namespace engine {

namespace {

constexpr std::uint64_t kMostLines = 1000;

}  // namespace

void writeErrorLine(const std::string& line) {
  const std::string text = "rsync: " + line + "\n";
  if (::write(STDERR_FILENO, text.data(), text.size()) < 0) return;
}

void Problems::pass(const std::string&) {}

void Problems::say(const std::string& line) {
  const std::uint64_t number = ++count_;
  if (number > kMostLines) return;
  writeErrorLine(line);
  pass(line);
  if (number == kMostLines) {
    writeErrorLine("further problems are not listed");
    pass("further problems are not listed");
  }
}

void Problems::add(const std::string& path, const std::string& what) {
  say("'/" + printable(path) + "': " + what);
}

void Problems::addAtDestination(const std::string& path, const char* what) {
  const int error = errno;
  const std::string text = std::string(what) + ": " + std::strerror(error);
  if (error == ENOSPC || error == EDQUOT || error == EROFS || error == EIO)
    throw qxrsync::Failure(qxrsync::kExitFileIo, "'/" + printable(path) + "': " + text + " (" +
                                                     std::to_string(error) + ")");
  add(path, text);
}

void Problems::addVanished(const std::string& path) {
  say("'/" + printable(path) + "' has vanished");
}

}  // namespace engine
