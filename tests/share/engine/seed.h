// What the random numbers of a test begin with: $QX_TEST_SEED when a failure is to be
// repeated, else something new each time. The program's option --seed N sets it (seed.cc).
// It is printed once, whether or not a test fails; put it into SCOPED_TRACE, too.
#ifndef QX_TESTS_SHARE_ENGINE_SEED_H
#define QX_TESTS_SHARE_ENGINE_SEED_H

unsigned testSeed();

#endif  // QX_TESTS_SHARE_ENGINE_SEED_H
