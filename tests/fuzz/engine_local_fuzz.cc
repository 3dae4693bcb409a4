// What the copy engine reads of its own machine: the manifest of an earlier pass, what the
// kernel tells of changes, what sender and tracker say to each other. The first byte picks
// the reader. Run:
//
//   build/fuzz/tests/fuzz/engine_local_fuzz tests/fuzz/corpus/engine_local
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "share/engine/change_watch.h"
#include "share/engine/file_events.h"
#include "share/engine/manifest.h"
#include "share/engine/mapped_files.h"
#include "share/engine/tracker.h"

namespace {

namespace fs = std::filesystem;
using engine::Buffer;
using engine::Manifest;
using engine::ProtocolError;

void require(bool truth) {
  if (!truth) abort();
}

// One for the whole run, in memory.
class Folder {
 public:
  Folder() { require(::mkdtemp(path_.data()) != nullptr); }
  ~Folder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_ = "/dev/shm/qx-engine-fuzz.XXXXXX";
};

const std::string& folder() {
  static const Folder made;
  return made.path();
}

// Everything of it in both ways: part after part, and by its index.
void readManifest() {
  const auto manifest = Manifest::open(folder(), {});
  if (!manifest) return;
  manifest->suspects(1, 1);
  std::vector<std::string> paths = {""};
  try {
    manifest->forEachPart([&](const Manifest::Part& part) {
      paths.emplace_back(part.path);
      part.forEachEntry([](std::string_view, const engine::Known&) {});
      require(part.bytesWithout({"name"}).size() <= part.bytes.size());
    });
  } catch (const ProtocolError&) {
  }
  for (const std::string& path : paths) {
    try {
      auto directory = manifest->directory(path);
      if (!directory) continue;
      directory->find("name");
      require(directory->names(3).size() <= 3);
      for (const auto& [name, known] : directory->rest()) require(name.size() <= 255);
    } catch (const ProtocolError&) {
    }
  }
}

void manifestFile(std::string_view bytes) {
  const engine::Fd file(
      ::open((folder() + "/manifest").c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600));
  require(file &&
          ::write(file.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
  readManifest();
}

// The file is as it should be, but not the parts in it, which are as long as the byte in
// front of each says.
void manifestParts(std::string_view bytes) {
  engine::ManifestWriter writer(folder(), {});
  while (!bytes.empty()) {
    const size_t length = static_cast<unsigned char>(bytes[0]);
    const std::string_view part = bytes.substr(1, length);
    bytes.remove_prefix(std::min(bytes.size(), 1 + length));
    try {
      writer.add(engine::Decoder(part).text(engine::kLongestPath, "path"), part);
    } catch (const ProtocolError&) {
      writer.add("", part);
    }
  }
  require(!writer.finish().empty());
  readManifest();
}

void events(std::string_view bytes) {
  engine::readEvents(bytes, [](std::string_view object, std::string_view name) {
    require(engine::ChangedObject::from(object).fsid.size() == 8);  // or the tracker would end
    require(name.size() <= 255 && name.find('/') == std::string_view::npos && name != "." &&
            name != "..");
  });
}

void request(std::string_view bytes) {
  const engine::TrackerRequest taken = engine::takeRequest(bytes);
  Buffer again;
  putRequest(again, taken);
  require(again.view() == bytes);
}

void answer(std::string_view bytes) {
  const engine::TrackerAnswer taken = engine::takeAnswer(bytes);
  Buffer again;
  putAnswer(again, taken);
  require(engine::takeAnswer(again.view()) == taken);
}

void moment(std::string_view bytes) {
  const engine::Moment taken = engine::takeMoment(bytes);
  Buffer again;
  putMoment(again, taken);
  require(engine::takeMoment(again.view()) == taken);
}

void read(char which, std::string_view bytes) {
  switch (which) {
    case 'm':
      return manifestFile(bytes);
    case 'p':
      return manifestParts(bytes);
    case 'e':
      return events(bytes);
    case 'o':
      engine::ChangedObject::from(bytes);
      return;
    case 'q':
      return request(bytes);
    case 'a':
      return answer(bytes);
    case 'n':
      return moment(bytes);
    case 'f':
      engine::watchedFileSystemsIn(bytes);
      return;
    default:
      engine::writableMappingsIn(bytes);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  try {
    read(input[0], input.substr(1));
  } catch (const ProtocolError&) {
  }
  return 0;
}
