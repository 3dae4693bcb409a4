// Replays the corpus of the fuzz target of what comes over the wire.
#include "support/corpus.h"

#include <gtest/gtest.h>

TEST(WireCorpus, NothingInItCrashesOrMeansTwoThings) {
  test_support::replayCorpus(QX_CORPUS_DIR, LLVMFuzzerTestOneInput);
}
