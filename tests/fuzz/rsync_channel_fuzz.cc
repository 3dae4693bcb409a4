// Feeds any bytes to what the rsync program reads of the other end and of stock rsync:
// the first byte picks the reader. Run:
//
//   build/fuzz/tests/fuzz/rsync_channel_fuzz tests/fuzz/corpus/rsync_channel
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "share/rsync/file_systems.h"
#include "share/rsync/handshake.h"
#include "share/rsync/progress.h"

namespace {

void require(bool truth) {
  if (!truth) abort();
}

void offer(const std::string& line) {
  const auto offer = qxrsync::parseOffer(line);
  if (offer) require(qxrsync::parseOffer(qxrsync::formatOffer(*offer)) == offer);
}

// Becomes part of a command line.
void capabilities(const std::string& line) {
  const auto read = qxrsync::parseCapabilities(line);
  if (!read) return;
  require(qxrsync::formatCapabilities(*read) == line);
  for (const char c : read->word) require(isalnum(static_cast<unsigned char>(c)) || c == '.');
}

// In whatever pieces it comes, the same bar is shown.
void progress(std::string_view text) {
  qxrsync::ProgressBar whole(1000);
  qxrsync::ProgressBar pieces(1000);
  std::string passed = whole.feed(text);
  std::string passedInPieces;
  for (size_t at = 0, size = 1; at < text.size(); at += size, size = size % 7 + 1)
    passedInPieces += pieces.feed(text.substr(at, size));
  require(passed == passedInPieces);
  require(whole.changedBar() == pieces.changedBar());
  passed = whole.finish(true);
  require(passed == pieces.finish(true));
}

void parse(char which, const std::string& text) {
  switch (which) {
    case 'o':
      return offer(text);
    case 'c':
      return capabilities(text);
    case 'p':
      return progress(text);
    default:
      qxrsync::localMountPoints(text);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 0) parse(static_cast<char>(data[0]), std::string(data + 1, data + size));
  return 0;
}
