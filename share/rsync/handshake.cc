#include "share/rsync/handshake.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "host/text.h"
#include "host/visible.h"
#include "share/rsync/failure.h"

namespace qxrsync {

namespace {

constexpr std::string_view kTag = "QXRSYNC";
constexpr std::string_view kCapabilitiesTag = "CAPABILITIES";
constexpr std::string_view kTakenLine = "TAKEN";
constexpr std::string_view kRefusedLine = "REFUSED";

// Each blank separates, so that a line is written in one way only.
std::vector<std::string_view> splitAtBlanks(std::string_view line) {
  std::vector<std::string_view> found;
  while (true) {
    const size_t blank = line.find(' ');
    found.push_back(line.substr(0, blank));
    if (blank == std::string_view::npos) return found;
    line.remove_prefix(blank + 1);
  }
}

// What a stranger said, fit for a message on a terminal.
std::string inQuotes(const std::string& line) {
  constexpr size_t kShown = 60;  // bytes
  return '"' + host::visibleLine(line, kShown) + '"';
}

void waitFor(int fd, short events, const Deadline& deadline) {
  pollfd wanted{fd, events, 0};
  while (true) {
    const int ready = ::poll(&wanted, 1, deadline.left());
    if (ready > 0) return;
    if (ready == 0)
      throw Failure(kExitProtocol, "the other end of the data channel does not answer");
    if (errno != EINTR) throw systemFailure(kExitProtocol, "cannot wait for the data channel");
  }
}

void writeLine(int fd, std::string_view line, const Deadline& deadline) {
  while (!line.empty()) {
    waitFor(fd, POLLOUT, deadline);
    const ssize_t written = ::write(fd, line.data(), line.size());
    if (written >= 0) {
      line.remove_prefix(static_cast<size_t>(written));
    } else if (errno == EPIPE || errno == ECONNRESET) {
      throw Failure(kExitProtocol, "the other end of the data channel is closed");
    } else if (errno != EAGAIN && errno != EINTR) {
      throw systemFailure(kExitProtocol, "cannot write to the data channel");
    }
  }
}

// Byte by byte: what follows the line belongs to stock rsync.
std::string readLine(int fd, const Deadline& deadline) {
  std::string line;
  while (line.size() <= kHandshakeLineLimit) {
    waitFor(fd, POLLIN, deadline);
    char byte = 0;
    const ssize_t count = ::read(fd, &byte, 1);
    if (count == 1) {
      if (byte == '\n') return line;
      line += byte;
    } else if (count == 0 || errno == ECONNRESET) {
      throw Failure(kExitProtocol,
                    line.empty()
                        ? "the other end of the data channel closed it before the transfer"
                        : "the other end of the data channel closed it after " + inQuotes(line));
    } else if (errno != EAGAIN && errno != EINTR) {
      throw systemFailure(kExitProtocol, "cannot read from the data channel");
    }
  }
  throw Failure(kExitProtocol,
                "the other end of the data channel does not run this program: " + inQuotes(line));
}

Failure notUnderstood(const std::string& line) {
  return {kExitProtocol,
          "the other end of the data channel does not run this version of this program: " +
              inQuotes(line)};
}

}  // namespace

std::string formatOffer(const Offer& offer) {
  std::string features;
  if (offer.acls) features += 'A';
  if (offer.xattrs) features += 'X';
  if (offer.descriptors) features += 'D';
  if (features.empty()) features = "-";
  return std::string(kTag) + " " + std::to_string(kHandshakeVersion) + " " + features +
         (!offer.engine  ? " "
          : offer.direct ? " 00"
                         : " 0") +
         std::to_string(offer.usedBytes);
}

std::optional<Offer> parseOffer(std::string_view line) {
  const std::vector<std::string_view> parts = splitAtBlanks(line);
  if (parts.size() != 4 || parts[0] != kTag || host::parseDecimal(parts[1]) != kHandshakeVersion)
    return std::nullopt;
  const std::string_view features = parts[2];
  Offer offer;
  offer.acls = features.find('A') != std::string_view::npos;
  offer.xattrs = features.find('X') != std::string_view::npos;
  offer.descriptors = features.find('D') != std::string_view::npos;
  const std::optional<std::uint64_t> usedBytes = host::parseDecimal(parts[3]);
  if (!usedBytes) return std::nullopt;
  offer.usedBytes = *usedBytes;
  const std::string_view beforeLast = parts[3].substr(0, parts[3].size() - 1);
  offer.engine = beforeLast.substr(0, 1) == "0";
  offer.direct = beforeLast.substr(0, 2) == "00";
  const std::string again = formatOffer(offer);  // one way to write it
  return splitAtBlanks(again)[2] == features ? std::optional<Offer>(offer) : std::nullopt;
}

std::string formatCapabilities(const Capabilities& capabilities) {
  std::string line =
      std::string(kCapabilitiesTag) + " " + (capabilities.word.empty() ? "-" : capabilities.word);
  // An end that knows of no limit understands the line of one that has none.
  if (capabilities.pace != host::CopyPace{})
    line += " " + std::to_string(capabilities.pace.kibPerSecond) +
            (capabilities.pace.yields ? " 1" : " 0");
  return line;
}

std::optional<Capabilities> parseCapabilities(std::string_view line) {
  const std::vector<std::string_view> parts = splitAtBlanks(line);
  if ((parts.size() != 2 && parts.size() != 4) || parts[0] != kCapabilitiesTag) return std::nullopt;
  Capabilities capabilities;
  const std::string_view word = parts[1];
  const bool plain = !word.empty() && std::all_of(word.begin(), word.end(), [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.';
  });
  if (plain)
    capabilities.word = word;
  else if (word != "-")
    return std::nullopt;
  if (parts.size() == 4) {
    const std::optional<std::uint64_t> rate = host::parseDecimal(parts[2]);
    if (!rate || *rate > host::kMostKibPerSecond) return std::nullopt;
    capabilities.pace = {*rate, parts[3] == "1"};
  }
  // One way to write it.
  return formatCapabilities(capabilities) == line ? std::optional(capabilities) : std::nullopt;
}

Offer exchangeOffers(int in, int out, const Offer& mine, const Deadline& deadline) {
  writeLine(out, formatOffer(mine) + "\n", deadline);
  const std::string line = readLine(in, deadline);
  std::optional<Offer> theirs = parseOffer(line);
  if (!theirs) throw notUnderstood(line);
  theirs->acls = theirs->acls && mine.acls;
  theirs->xattrs = theirs->xattrs && mine.xattrs;
  theirs->descriptors = theirs->descriptors && mine.descriptors;
  theirs->engine = theirs->engine && mine.engine;
  theirs->direct = theirs->direct && mine.direct && theirs->engine;
  return *theirs;
}

void sendCapabilities(int out, const Capabilities& capabilities, const Deadline& deadline) {
  writeLine(out, formatCapabilities(capabilities) + "\n", deadline);
}

Capabilities receiveCapabilities(int in, const Deadline& deadline) {
  const std::string line = readLine(in, deadline);
  std::optional<Capabilities> capabilities = parseCapabilities(line);
  if (!capabilities) throw notUnderstood(line);
  return *capabilities;
}

bool handOverStreams(const Channel& channel, int streamIn, int streamOut,
                     const Deadline& deadline) {
  waitFor(channel.out.get(), POLLOUT, deadline);
  sendDescriptors(channel.out.get(), streamIn, streamOut);
  const std::string line = readLine(channel.in.get(), deadline);
  if (line != kTakenLine && line != kRefusedLine) throw notUnderstood(line);
  return line == kTakenLine;
}

std::optional<Channel> takeStreams(int in, int out, const Deadline& deadline) {
  waitFor(in, POLLIN, deadline);
  std::optional<Channel> streams = receiveDescriptors(in);
  writeLine(out, std::string(streams ? kTakenLine : kRefusedLine) + "\n", deadline);
  return streams;
}

}  // namespace qxrsync
