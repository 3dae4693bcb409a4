// Replaying the corpus of a fuzz target in an ordinary test.
#ifndef QX_TESTS_SUPPORT_CORPUS_H
#define QX_TESTS_SUPPORT_CORPUS_H

#include <cstddef>
#include <cstdint>
#include <string>

/// The target, one to a program.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace test_support {

/// Gives every file of the folder to a target. A folder with fewer than `least` fails the
/// test: then it was not found.
void replayCorpus(const std::string& folder, int (*target)(const std::uint8_t*, std::size_t),
                  int least = 8);

}  // namespace test_support

#endif
