#include "support/corpus.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/temp_tree.h"

namespace test_support {

void replayCorpus(const std::string& folder, int (*target)(const std::uint8_t*, std::size_t),
                  int least) {
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    SCOPED_TRACE(entry.path());
    const std::string text = readFile(entry.path());
    EXPECT_EQ(target(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()), 0);
    ++files;
  }
  EXPECT_GE(files, least) << "the corpus was not found";
}

}  // namespace test_support
