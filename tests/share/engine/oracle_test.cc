// Random trees, changed between passes: the copy is what the source is, and what
// stock rsync makes of it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "share_tests/engine/random_tree.h"
#include "share_tests/engine/seed.h"
#include "share_tests/transfer.h"
#include "share_tests/tree_picture.h"
#include "support/temp_tree.h"

using test_support::dirAt;
using test_support::TempTree;

namespace {

namespace fs = std::filesystem;

// Range of seeds: QX_TEST_TREES random trees in all, side by side.
constexpr int kShards = 4;

int treesPerShard() {
  const char* wanted = std::getenv("QX_TEST_TREES");
  return wanted != nullptr ? std::atoi(wanted) / kShards : 6;
}

class Oracle : public testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "NOT TESTED: this needs root";
    ::setenv("QX_RSYNC_ENGINE", "own", 1);
  }

  static void stock(const std::string& from, const std::string& to) {
    ASSERT_EQ(runProgram({"/usr/bin/rsync", "-aHAXS", "--numeric-ids", "--delete",
                          "--modify-window=-1", from + "/", to}),
              0);
  }

  // Each pass goes by the manifest of the one before, or compares everything.
  void copyChangingTrees(bool manifest) {
    const unsigned begin = testSeed();
    for (int i = 0; i < treesPerShard(); ++i) {
      const unsigned seed = begin + static_cast<unsigned>(i * kShards + GetParam());
      SCOPED_TRACE("seed " + std::to_string(seed) +
                   ": repeat with QX_TEST_TREES=4 and --seed it, shard 0");
      const TempTree tree{dirAt("from"), dirAt("to"), dirAt("stock"), dirAt("agent")};
      if (manifest)
        ::setenv("QXA_TMPDIR", tree.path("agent").c_str(), 1);
      else
        ::unsetenv("QXA_TMPDIR");
      RandomTree source(tree.path("from"), seed);
      if (manifest) source.hideSomeChanges();
      source.grow(60);
      for (int pass = 0; pass < 4; ++pass) {
        SCOPED_TRACE("pass " + std::to_string(pass));
        transfer(tree.path("from") + "/", tree.path("to"));
        ASSERT_EQ(differences(tree.path("to"), tree.path("from")), "") << "ours | the source";
        if (!manifest) {  // or else there are changes that stock rsync does not see
          stock(tree.path("from"), tree.path("stock"));
          ASSERT_EQ(differences(tree.path("to"), tree.path("stock")), "") << "ours | stock rsync";
        }
        ASSERT_EQ(fs::exists(tree.path("agent/engine/manifest")), manifest);
        source.mutate(25);
      }
    }
  }
};

}  // namespace

TEST_P(Oracle, ComparingPassesMakeTheSource) { copyChangingTrees(false); }

TEST_P(Oracle, PassesByManifestMakeTheSource) { copyChangingTrees(true); }

INSTANTIATE_TEST_SUITE_P(Shards, Oracle, testing::Range(0, kShards));
