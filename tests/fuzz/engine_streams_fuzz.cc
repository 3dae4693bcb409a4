// Both directions of the copy engine's protocol: frames, and what is in them. What begins
// with 'a' are the records of a server that lies, which are applied to a tree: nothing
// beside the tree may change. Run as root:
//
//   build/fuzz/tests/fuzz/engine_streams_fuzz tests/fuzz/corpus/engine_streams
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "share/engine/answers.h"
#include "share/engine/applier.h"
#include "share/engine/changes_report.h"
#include "share/engine/compression.h"
#include "share/engine/direct_frames.h"
#include "share/engine/frame.h"
#include "share/engine/hello.h"
#include "share/engine/records.h"
#include "share/engine/stream.h"
#include "share/rsync/failure.h"

namespace {

namespace fs = std::filesystem;
using engine::Decoder;

void require(bool truth) {
  if (!truth) abort();
}

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

// The bytes of a channel, in whatever pieces they come.
class Pieces : public engine::Stream {
 public:
  explicit Pieces(std::string_view bytes) : bytes_(bytes) {}

  std::chrono::nanoseconds write(std::string_view) override { return {}; }
  size_t read(char* to, size_t count, int) override {
    size_ = size_ % 7 + 1;
    count = bytes_.copy(to, std::min(count, size_));
    bytes_.remove_prefix(count);
    return count;
  }

 private:
  std::string_view bytes_;
  size_t size_ = 0;
};

void readFrames(std::string_view bytes) {
  Pieces channel(bytes);
  engine::FrameReader reader(channel);
  engine::Buffer payload;
  while (const auto header = reader.read(payload))
    require(payload.size() == header->length && payload.size() <= engine::kLargestFrame);
}

// What it is taken for is what everybody else takes it for.
void takeAddress(std::string_view payload) {
  const std::string text = engine::takeAddress(payload).text();
  const auto again = engine::IpAddress::parse(text);
  require(again && again->text() == text && text.size() <= engine::kLongestAddress);
}

void takeMeeting(std::string_view payload) {
  engine::Key key;
  engine::Buffer again;
  const std::uint16_t port = engine::takeMeeting(payload, key);
  engine::putMeeting(again, port, key);
  require(again.view() == payload);
}

void takeWanted(std::string_view payload) {
  const engine::Job job = engine::takeWanted(payload);
  require(!job.names.empty() && !job.directory.starts_with('/'));
  for (const std::string& name : job.names)
    require(!name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos);
}

// A folder with a tree to fill and, beside it, what a way out of the tree would lead to.
class Place {
 public:
  Place() {
    require(::mkdtemp(path_.data()) != nullptr);
    fs::create_directories(tree());
    fs::create_directories(path_ + "/out");
    write(path_ + "/out/file");
    fs::create_symlink("../out", tree() + "/l");
    fs::create_directory(tree() + "/d");
    write(tree() + "/f");
    fs::create_hard_link(tree() + "/f", tree() + "/d/g");
    before_ = outside();
  }
  ~Place() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }

  std::string tree() const { return path_ + "/tree"; }
  bool isUntouched() const { return outside() == before_; }

 private:
  static void write(const std::string& path) {
    const engine::Fd file(::open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
    require(file && ::write(file.get(), "canary", 6) == 6);
  }
  // Everything of what lies outside that a change would show in.
  std::string outside() const {
    std::string seen;
    for (const std::string& path : {path_, path_ + "/out", path_ + "/out/file"}) {
      struct stat status {};
      require(::lstat(path.c_str(), &status) == 0);
      for (const auto number :
           {static_cast<long long>(status.st_mode), static_cast<long long>(status.st_uid),
            static_cast<long long>(status.st_nlink), static_cast<long long>(status.st_size),
            static_cast<long long>(status.st_ctim.tv_sec),
            static_cast<long long>(status.st_ctim.tv_nsec)})
        seen += std::to_string(number) + " ";
    }
    return seen;
  }

  // In memory, and as good as any other file system for this.
  std::string path_ = "/dev/shm/qx-engine-fuzz.XXXXXX";
  std::string before_;
};

// Frames are as long as the byte in front of each says.
void applyRecords(std::string_view input) {
  const Place place;
  const engine::Tree tree(place.tree());
  const engine::Rules rules({"/kept", "*.old"});
  engine::Problems problems;
  engine::Copy copy(tree, rules, {true, true}, problems);
  copy.want = [](const std::string&, const std::vector<std::string>&) {};
  try {
    engine::Applier applier(copy);
    while (!input.empty()) {
      const size_t length = static_cast<unsigned char>(input[0]);
      // In memory of its own, so that what outlives its frame is found out.
      const std::string frame(input.substr(1, length));
      input.remove_prefix(std::min(input.size(), 1 + length));
      applier.apply(frame);
    }
    applier.abandon();
  } catch (const engine::ProtocolError&) {
  } catch (const qxrsync::Failure&) {
  }
  require(place.isUntouched());
}

template <typename Take>
void attempt(const Take& take) {
  try {
    take();
  } catch (const engine::ProtocolError&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  if (input.starts_with('a')) {
    applyRecords(input.substr(1));
    return 0;
  }
  attempt([&] { engine::decodeHeader(input); });
  attempt([&] { engine::takeReceiverHello(input); });
  attempt([&] { engine::takeSenderHello(input); });
  attempt([&] { engine::takeFarewell(input); });
  attempt([&] { engine::textOf(engine::takeReport(input)); });
  attempt([&] { takeRecords(input); });
  attempt([&] { readFrames(input); });
  attempt([&] { takeAddress(input); });
  attempt([&] { takeMeeting(input); });
  attempt([&] { engine::takeMet(input); });
  attempt([&] { engine::takeAgreed(input); });
  attempt([&] { takeWanted(input); });
  attempt([&] { engine::takeCount(input); });
  attempt([&] { takeCompressed(input); });
  return 0;
}
