// Both directions of the copy engine's protocol: frames, and what is in them.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "share/engine/compression.h"
#include "share/engine/frame.h"
#include "share/engine/hello.h"
#include "share/engine/records.h"

namespace {

using engine::Decoder;

void takeRecords(std::string_view payload) {
  Decoder from(payload);
  engine::Entry entry;
  while (!from.atEnd()) {
    switch (from.byte() % 4) {
      case 0:
        engine::takeEntry(from, entry);
        break;
      case 1:
        engine::takePath(from);
        break;
      case 2:
        engine::takeName(from);
        break;
      default:
        from.bytes(from.fixed32(), "data");
        engine::takeDigest(from);
    }
  }
}

void takeCompressed(std::string_view payload) {
  engine::Decompressor decompressor;
  engine::Buffer compressed;
  engine::Buffer plain;
  compressed.append(payload);
  decompressor.decompress(compressed, plain);
}

template <typename Take>
void attempt(const Take& take) {
  try {
    take();
  } catch (const engine::ProtocolError&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  attempt([&] { engine::decodeHeader(input); });
  attempt([&] { engine::takeReceiverHello(input); });
  attempt([&] { engine::takeSenderHello(input); });
  attempt([&] { engine::takeFarewell(input); });
  attempt([&] { takeRecords(input); });
  attempt([&] { takeCompressed(input); });
  return 0;
}
