// Feeds any bytes to what the agent reads of the other end; the first byte picks the
// reader. None may crash, or throw anything but what its caller expects, and nothing may
// mean two things. Run:
//
//   build/fuzz/tests/fuzz/agent_wire_fuzz tests/fuzz/corpus/agent_wire
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

#include "agent/plan/amounts.h"
#include "agent/plan/measured_config.h"
#include "agent/plan/measurement.h"
#include "agent/plan/records_json.h"
#include "agent/plan/survey_facts.h"
#include "agent/transport/bootstrap.h"
#include "agent/transport/caller.h"
#include "agent/transport/ssh_address.h"
#include "agent/transport/ssh_problem.h"
#include "agent/verify/compare_lists.h"
#include "agent/verify/list_reader.h"
#include "agent/verify/tree_entry.h"
#include "agent/verify/verify_text.h"
#include "agent/wire/base64.h"
#include "agent/wire/bounded_json.h"
#include "agent/wire/dispatcher.h"
#include "agent/wire/message.h"
#include "agent/wire/protocol.h"
#include "framework/env_manager.h"
#include "host/fd.h"
#include "host/mounts.h"
#include "host/visible.h"

namespace {

void require(bool truth) {
  if (!truth) abort();
}

// Takes what an end would send.
class Nowhere : public agent::FrameSink {
 public:
  bool send(const nlohmann::json& frame, const std::vector<int>&) override {
    agent::parseFrame(agent::encodeFrame(frame).substr(4));
    return true;
  }
};

// In pieces of uneven sizes, as they come from a socket.
template <class Function>
void eachFrame(std::string_view bytes, Function function) {
  agent::FrameDecoder decoder;
  for (size_t size = 1; !bytes.empty(); size = size * 2 + 1) {
    decoder.feed(bytes.substr(0, size));
    bytes.remove_prefix(std::min(size, bytes.size()));
    while (const auto frame = decoder.next()) function(*frame);
  }
}

void frames(std::string_view bytes) {
  eachFrame(bytes, [](const nlohmann::json& frame) {
    require(agent::parseFrame(agent::encodeFrame(frame).substr(4)) == frame);
  });
}

void serve(std::string_view bytes) {
  Nowhere sink;
  agent::Dispatcher dispatcher(sink, QXL::QXLClientContext());
  eachFrame(bytes, [&](const nlohmann::json& frame) { dispatcher.onFrame(frame, {}); });
}

void answer(std::string_view bytes) {
  Nowhere sink;
  agent::Caller caller(sink);
  eachFrame(bytes, [&](const nlohmann::json& frame) { caller.onFrame(frame); });
}

void boundedJson(const std::string& text) {
  const nlohmann::json ours = agent::parseBounded(text);
  require(nlohmann::json::parse(text) == ours);
}

void base64(const std::string& text) {
  require(agent::decodeBase64(agent::encodeBase64(text)) == text);
  const auto bytes = agent::decodeBase64(text);
  if (bytes) require(agent::encodeBase64(*bytes) == text);
}

void message(const std::string& text) {
  const nlohmann::json body = agent::parseBounded(text);
  agent::Message::check(body);
  agent::Message message(body);
  message.firstError();
  for (int id = 0; id < 4; ++id) {
    long long number = 0;
    std::string bytes;
    message.getValueLongLong(number, id);
    message.getValueBase64(bytes, id);
  }
  agent::checkHello(body);
}

// What is kept of a measured configuration is read back as the same.
void config(const std::string& text) {
  const QXA::QXAEnvConfigBashParser parser((QXL::QXLVocCacheLocal()));
  QXA::QXAEnvConfig claimed;
  if (parser.parse(text, claimed) != 0) return;
  agent::keepMeasurable(claimed);
  const std::string kept = parser.format(claimed);
  QXA::QXAEnvConfig again;
  require(parser.parse(kept, again) == 0);
  require(agent::keepMeasurable(again).empty());
  require(parser.format(again) == kept);
}

void measurement(const std::string& text) {
  agent::Measurement measurement;
  agent::fromJson(agent::parseBounded(text), measurement);
  const nlohmann::json once = agent::toJson(measurement);
  agent::Measurement again;
  agent::fromJson(once, again);
  require(agent::toJson(again) == once);
  agent::bytesText(static_cast<long long>(measurement.diskspace));
}

void survey(const std::string& text) {
  agent::Survey survey;
  agent::fromJson(agent::parseBounded(text), survey);
  const nlohmann::json once = agent::toJson(survey);
  agent::Survey again;
  agent::fromJson(once, again);
  require(agent::toJson(again) == once);
}

// What a person gets to see has no character that does anything.
void visible(const std::string& text) {
  const std::string line = host::visibleLine(text, 200);
  for (const char c : line) require(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f);
  host::visibleLines(text);
}

void address(const std::string& text) {
  // Throws for what is none.
  const agent::SshAddress found = agent::parseSshAddress(text);
  // ssh would take it for an option.
  require(!found.target().starts_with("-") && !found.host.empty());
}

host::Fd inMemory(std::string_view bytes) {
  host::Fd file(memfd_create("list", MFD_CLOEXEC));
  require(file && write(file.get(), bytes.data(), bytes.size()) >= 0 &&
          lseek(file.get(), 0, SEEK_SET) == 0);
  return file;
}

// What was read of a list of files is written as it was: no entry has two forms.
void list(const std::string& text) {
  const host::Fd file = inMemory(text);
  agent::ListReader reader(file.get(), -1, nullptr, "the list");
  reader.clock();
  engine::Buffer again;
  try {
    while (const auto entry = reader.next()) {
      again.clear();
      agent::putTreeEntry(again, *entry);
      agent::takeTreeEntry(again.view().substr(4));
    }
  } catch (const engine::ProtocolError&) {
    abort();
  }
}

// The lists of a server and of a container, the first as long as its first byte says.
void twoLists(const std::string& text) {
  const size_t first = text.empty() ? 0 : 1 + static_cast<unsigned char>(text[0]);
  if (first > text.size() || text.empty()) return;
  const host::Fd one = inMemory(std::string_view(text).substr(1, first - 1));
  const host::Fd two = inMemory(std::string_view(text).substr(first));
  agent::ListReader server(one.get(), -1, nullptr, "the server's list");
  agent::ListReader container(two.get(), -1, nullptr, "the container's list");
  const agent::Moments moments{server.clock(), container.clock()};
  const agent::TreeComparison found =
      agent::compareLists(server, container, {agent::Edits(text), moments});
  agent::comparisonJson(found);
  const std::string shown = agent::comparisonText(found, true);
  for (const char c : shown) require(c == '\n' || static_cast<unsigned char>(c) >= 0x20);
}

// Who logs in by ssh reads lines of the server before an agent runs there.
void bootstrapLine(const std::string& text) {
  const agent::BootstrapLine line = agent::readBootstrapLine(text);
  require(line.word.empty() || line.kind == agent::BootstrapLine::Kind::kError);
  agent::explainBootstrapFailure("root@old", line.word, line.detail);
}

void parse(char which, const std::string& text) {
  switch (which) {
    case 'f':
      return frames(text);
    case 'd':
      return serve(text);
    case 'c':
      return answer(text);
    case 'j':
      return boundedJson(text);
    case 'b':
      return base64(text);
    case 'm':
      return message(text);
    case 'v':
      return config(text);
    case 'r':
      return measurement(text);
    case 's':
      return survey(text);
    case 't':
      return visible(text);
    case 'a':
      return address(text);
    case 'l':
      return list(text);
    case 'w':
      return twoLists(text);
    case 'o':
      return bootstrapLine(text);
    default:
      agent::explainSshFailure("root@old", text, 255 << 8);
      host::parseMountTable(text);
      host::parseMountInfo(text);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  try {
    parse(static_cast<char>(data[0]), std::string(data + 1, data + size));
  } catch (const std::runtime_error&) {
    // What is refused ends a connection, or a request.
  } catch (const nlohmann::json::exception&) {
    // A member of a wrong type.
  }
  return 0;
}
