// Replays the corpus of the parsers' fuzz target.
#include "support/corpus.h"

#include <gtest/gtest.h>

TEST(CalculatorParsersCorpus, NothingInItCrashesOrBreaksTheRules) {
  test_support::replayCorpus(QX_CORPUS_DIR, LLVMFuzzerTestOneInput);
}
