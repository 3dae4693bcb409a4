// Replays the corpus of the fuzz target of what comes over the wire.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>

#include "support/temp_tree.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

TEST(WireCorpus, NothingInItCrashesOrMeansTwoThings) {
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(QX_CORPUS_DIR)) {
    SCOPED_TRACE(entry.path());
    const std::string text = test_support::readFile(entry.path());
    EXPECT_EQ(
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()), 0);
    ++files;
  }
  EXPECT_GT(files, 10) << "the corpus was not found";
}

}  // namespace
