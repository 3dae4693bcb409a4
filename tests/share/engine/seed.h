// What the random numbers of a test begin with: $QX_TEST_SEED when a failure is to be
// repeated, else something new each time. Put it into SCOPED_TRACE.
#ifndef QX_TESTS_SHARE_ENGINE_SEED_H
#define QX_TESTS_SHARE_ENGINE_SEED_H

#include <cstdlib>
#include <random>

inline unsigned testSeed() {
  const char* wanted = std::getenv("QX_TEST_SEED");
  return wanted != nullptr ? static_cast<unsigned>(std::strtoul(wanted, nullptr, 10))
                           : std::random_device{}();
}

#endif  // QX_TESTS_SHARE_ENGINE_SEED_H
