#include "share/engine/problems.h"

#include <cerrno>
#include <cstring>

#include "host/visible.h"
#include "share/engine/records.h"
#include "share/rsync/failure.h"

namespace engine {

namespace {

constexpr std::uint64_t kMostLines = 1000;

std::string visible(const std::string& path) { return host::visibleLine(path, kLongestPath); }

}  // namespace

void Problems::pass(const std::string&) {}

void Problems::say(const std::string& line) {
  const std::uint64_t number = ++count_;
  if (number > kMostLines) return;
  qxrsync::complain(line);
  pass(line);
  if (number == kMostLines) {
    qxrsync::complain("further problems are not listed");
    pass("further problems are not listed");
  }
}

void Problems::add(const std::string& path, const std::string& what) {
  say("'/" + visible(path) + "': " + what);
}

void Problems::addAtDestination(const std::string& path, const char* what) {
  const int error = errno;
  const std::string text = std::string(what) + ": " + std::strerror(error);
  if (error == ENOSPC || error == EDQUOT || error == EROFS || error == EIO)
    throw qxrsync::Failure(qxrsync::kExitFileIo, "'/" + visible(path) + "': " + text + " (" +
                                                     std::to_string(error) + ")");
  add(path, text);
}

void Problems::addVanished(const std::string& path) {
  say("'/" + visible(path) + "' has vanished");
}

}  // namespace engine
