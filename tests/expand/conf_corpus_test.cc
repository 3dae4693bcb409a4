// Replays the corpus of the parser's fuzz target.
#include "support/corpus.h"

#include <gtest/gtest.h>

TEST(ConfParserCorpus, EveryInputParsesSavesAndParsesToTheSame) {
  test_support::replayCorpus(QX_CORPUS_DIR, LLVMFuzzerTestOneInput);
}
