// Replays the corpus of the fuzz target of what the rsync program reads.
#include "support/corpus.h"

#include <gtest/gtest.h>

TEST(ChannelCorpus, NothingInItCrashesOrReadsBackDifferently) {
  test_support::replayCorpus(QX_CORPUS_DIR, LLVMFuzzerTestOneInput);
}
