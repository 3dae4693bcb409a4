#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "share/engine/hello.h"
#include "share/engine/payload.h"
#include "share/engine/records.h"
#include "share/engine/tracker.h"

namespace engine {

namespace {

constexpr std::uint32_t kLongestMessage = 256 << 20;  // bytes
constexpr size_t kLongestNote = 64 << 20;             // bytes
constexpr size_t kLongestObject = 256;                // bytes
constexpr std::uint64_t kLongestLife = 366 * 86400;   // seconds
constexpr int kPatience = 20000;                      // milliseconds

bool isReady(int socket, short events) {
  pollfd wanted{socket, events, 0};
  int count = 0;
  while ((count = ::poll(&wanted, 1, kPatience)) < 0 && errno == EINTR) {
  }
  return count > 0;
}

bool receiveAll(int socket, char* to, size_t count) {
  while (count > 0) {
    if (!isReady(socket, POLLIN)) return false;
    const ssize_t got = ::recv(socket, to, count, 0);
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (got <= 0) return false;
    to += got;
    count -= static_cast<size_t>(got);
  }
  return true;
}

bool sendAll(int socket, std::string_view bytes) {
  while (!bytes.empty()) {
    if (!isReady(socket, POLLOUT)) return false;
    const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
  return true;
}

}  // namespace

void putRequest(Buffer& to, const TrackerRequest& request) {
  putNumber(to, static_cast<unsigned>(request.kind));
  putText(to, request.identity);
  putText(to, request.note);
  putNumber(to, static_cast<std::uint64_t>(request.life.count()));
}

TrackerRequest takeRequest(std::string_view payload) {
  Decoder from(payload);
  TrackerRequest request;
  request.kind = static_cast<TrackerRequest::Kind>(
      from.number(static_cast<unsigned>(TrackerRequest::Kind::kKeep), "request"));
  request.identity = from.text(kLongestIdentity, "manifest's identity");
  request.note = from.text(kLongestNote, "note");
  request.life = std::chrono::seconds(from.number(kLongestLife, "time"));
  expectEnd(from);
  return request;
}

void putAnswer(Buffer& to, const TrackerAnswer& answer) {
  putNumber(to, answer.complete ? 1 : 0);
  putText(to, answer.note);
  putNumber(to, answer.devices.size());
  for (const dev_t device : answer.devices) putNumber(to, device);
  putNumber(to, answer.changes.size());
  for (const Changed& change : answer.changes) {
    putText(to, change.object);
    putNumber(to, change.names.size());
    for (const std::string& name : change.names) putText(to, name);
  }
}

TrackerAnswer takeAnswer(std::string_view payload) {
  Decoder from(payload);
  TrackerAnswer answer;
  answer.complete = from.number(1, "flag") == 1;
  answer.note = from.text(kLongestNote, "note");
  const std::uint64_t devices = from.number(from.left(), "number of devices");
  for (std::uint64_t i = 0; i < devices; ++i) answer.devices.push_back(from.number());
  const std::uint64_t changes = from.number(from.left(), "number of handles");
  for (std::uint64_t i = 0; i < changes; ++i) {
    Changed change;
    change.object = from.text(kLongestObject, "handle");
    const std::uint64_t names = from.number(kMostChangedNames, "number of names");
    for (std::uint64_t j = 0; j < names; ++j) change.names.emplace(takeName(from));
    answer.changes.push_back(std::move(change));
  }
  expectEnd(from);
  return answer;
}

bool sendMessage(int socket, const Buffer& payload) {
  if (payload.size() > kLongestMessage) return false;
  Buffer header;
  putFixed32(header, static_cast<std::uint32_t>(payload.size()));
  return sendAll(socket, header.view()) && sendAll(socket, payload.view());
}

bool receiveMessage(int socket, Buffer& payload) {
  char header[4];
  if (!receiveAll(socket, header, sizeof header)) return false;
  const std::uint32_t length = Decoder({header, sizeof header}).fixed32();
  if (length > kLongestMessage) return false;
  payload.clear();
  payload.resize(length);
  return receiveAll(socket, payload.data(), length);
}

std::string trackerSocket(const std::string& folder) { return folder + "/tracker"; }

}  // namespace engine
