// Replays the corpus of the fuzz target of what the copy engine reads of its own machine.
#include "support/corpus.h"

#include <gtest/gtest.h>

TEST(EngineLocalCorpus, NothingInItCrashesOrReadsBackDifferently) {
  test_support::replayCorpus(QX_CORPUS_DIR, LLVMFuzzerTestOneInput);
}
