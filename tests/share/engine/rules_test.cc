// Exclusions mean what they mean to stock rsync: asked, pattern by pattern.
#include "share/engine/rules.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "share_tests/engine/seed.h"
#include "share_tests/program_run.h"
#include "support/temp_tree.h"

using engine::Rules;
using test_support::fileAt;
using test_support::TempTree;

namespace {

namespace fs = std::filesystem;

class Patterns : public testing::TestWithParam<unsigned> {
 protected:
  // Few letters, so that patterns of the same letters often match.
  std::string randomName(bool pattern) {
    static const std::vector<std::string> plain = {"a", "b", "ab", "a.b", "-", "*", "[a]", "\\a"};
    static const std::vector<std::string> wild = {
        "*",         "**",    "***",         "?",    "[ab]",         "[!a]", "[^b-z]",
        "[a-b]",     "[]a]",  "[[:alpha:]]", "\\*",  "\\a",          "[",    "[a",
        "[:alpha:]", "\\[a]", "[\\]]",       "[a-]", "[[:punct:]x]", "[b-a]"};
    std::string name;
    do {
      const auto& from = pattern && pick(3) == 0 ? wild : plain;
      name += from[pick(from.size())];
    } while (pick(3) == 0);
    return name;
  }

  std::string randomPattern() {
    std::string text = pick(3) == 0 ? "/" : "";
    for (size_t i = 0;; ++i) {
      text += randomName(true);
      if (pick(2) == 0 || i == 3) break;
      text += pick(12) == 0 ? "//" : "/";
    }
    const size_t end = pick(8);
    if (end == 0) text += "/";
    if (end == 1) text += "/***";
    if (end == 2) text += "/**";
    if (end == 3) text += "/*";
    return text;
  }

  size_t pick(size_t below) { return random_() % below; }

  // What stock rsync lists of the tree with this exclusion.
  static std::set<std::string> stockKeeps(const std::string& root, const std::string& pattern) {
    ProgramRun run({"/usr/bin/rsync", "-a", "--out-format=%n", "--dry-run", "--exclude=" + pattern,
                    root + "/", "/nonexistent-destination"});
    run.start();
    EXPECT_EQ(run.exitStatus(), 0) << run.err();
    std::set<std::string> kept;
    const std::string out = run.out();
    for (size_t at = 0; at < out.size();) {
      const size_t end = out.find('\n', at);
      std::string line = out.substr(at, end - at);
      at = end + 1;
      while (!line.empty() && line.back() == '/') line.pop_back();
      if (line != "." && line.rfind("created directory", 0) != 0) kept.insert(line);
    }
    return kept;
  }

  static std::set<std::string> weKeep(const std::string& root, const Rules& rules) {
    std::set<std::string> kept;
    for (auto at = fs::recursive_directory_iterator(root); at != fs::end(at); ++at) {
      const std::string path = at->path().string().substr(root.size() + 1);
      if (rules.excludes(path, at->is_directory()))
        at.disable_recursion_pending();
      else
        kept.insert(path);
    }
    return kept;
  }

  const unsigned seed_ = testSeed() + GetParam();
  std::mt19937 random_{seed_};
};

}  // namespace

TEST_P(Patterns, RandomOnesMeanWhatStockRsyncSays) {
  SCOPED_TRACE("QX_TEST_SEED=" + std::to_string(seed_ - GetParam()));
  TempTree tree;
  for (int i = 0; i < 150; ++i) {
    std::string path;
    for (size_t depth = pick(4) + 1; depth > 0; --depth) path += randomName(false) + "/";
    path.pop_back();
    try {
      tree.add(fileAt(path, ""));
    } catch (const std::exception&) {  // a directory of that name, or a file on the way
    }
  }
  int matching = 0;
  for (int i = 0; i < 250; ++i) {
    const std::string pattern = randomPattern();
    if (!Rules::understands(pattern)) continue;
    const auto ours = weKeep(tree.root(), Rules({pattern}));
    const auto stocks = stockKeeps(tree.root(), pattern);
    std::string difference;
    for (const std::string& path : ours)
      if (!stocks.contains(path)) difference += " we keep " + path;
    for (const std::string& path : stocks)
      if (!ours.contains(path)) difference += " stock keeps " + path;
    EXPECT_EQ(difference, "") << "pattern '" << pattern << "'";
    if (ours != weKeep(tree.root(), Rules())) ++matching;
  }
  EXPECT_GT(matching, 50);
}

// Two thousand in all, side by side.
INSTANTIATE_TEST_SUITE_P(Seeds, Patterns, testing::Range(0U, 8U));
