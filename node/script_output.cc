#include "node/script_output.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "host/error.h"
#include "host/file.h"
#include "host/visible.h"

namespace node {
namespace {

/// More of a line than visibleLine shows, so that it says that it was cut.
constexpr size_t kLongest = 4096;

struct Stream {
  const Fd& from;
  int to;
  bool open = true;
  VisibleLines lines;

  void read() {
    std::array<char, 16384> buffer;
    const ssize_t got = ::read(from.get(), buffer.data(), buffer.size());
    if (got < 0 && errno == EINTR) return;
    if (got > 0) {
      writeAll(to, lines.take({buffer.data(), static_cast<size_t>(got)}));
      return;
    }
    open = false;
    writeAll(to, lines.rest());
  }
};

}  // namespace

std::string VisibleLines::take(std::string_view text) {
  std::string done;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    const std::string_view piece = text.substr(0, end);
    const size_t room = kLongest - std::min(kLongest, line_.size());
    line_ += piece.substr(0, room);
    if (end == text.npos) break;
    done += visibleLine(line_) + "\n";
    line_.clear();
    text.remove_prefix(end + 1);
  }
  return done;
}

std::string VisibleLines::rest() {
  std::string last = visibleLine(line_);
  line_.clear();
  return last;
}

void relayOutput(const Fd& out, const Fd& err) {
  std::array<Stream, 2> streams{Stream{out, STDOUT_FILENO, true, {}},
                                Stream{err, STDERR_FILENO, true, {}}};
  while (streams[0].open || streams[1].open) {
    std::array<pollfd, 2> polled{};
    for (size_t i = 0; i < streams.size(); ++i) {
      polled.at(i) = {streams.at(i).open ? streams.at(i).from.get() : -1, POLLIN, 0};
    }
    if (poll(polled.data(), polled.size(), -1) < 0) {
      if (errno == EINTR) continue;
      failErrno("cannot wait for the script's output");
    }
    for (size_t i = 0; i < streams.size(); ++i) {
      if (polled.at(i).revents != 0) streams.at(i).read();
    }
  }
}

}  // namespace node
