#include "share_tests/engine/seed.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string_view>

#include "host/text.h"

unsigned testSeed() {
  const char* wanted = std::getenv("QX_TEST_SEED");
  const unsigned seed = wanted != nullptr ? static_cast<unsigned>(std::strtoul(wanted, nullptr, 10))
                                          : std::random_device{}();
  std::printf("seed %u\n", seed);
  std::fflush(stdout);  // a test may end as a child process does
  return seed;
}

// GoogleTest's own, and --seed.
int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (argc == 3 && std::string_view(argv[1]) == "--seed" && host::parseDecimal(argv[2])) {
    ::setenv("QX_TEST_SEED", argv[2], 1);
  } else if (argc != 1) {
    std::fprintf(stderr, "usage: %s [--gtest_...] [--seed NUMBER]\n", argv[0]);
    return 64;
  }
  return RUN_ALL_TESTS();
}
