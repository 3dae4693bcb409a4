// Replays the corpus of the fuzz target of the copy engine's protocol.
#include "support/corpus.h"

#include <gtest/gtest.h>

TEST(EngineCorpus, NothingInItCrashesOrReachesWhatIsBesideTheTree) {
  test_support::replayCorpus(QX_CORPUS_DIR, LLVMFuzzerTestOneInput);
}
