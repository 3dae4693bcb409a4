// For tests of what only root may do.
#ifndef QX_TESTS_SHARE_NEED_ROOT_H
#define QX_TESTS_SHARE_NEED_ROOT_H

#include <gtest/gtest.h>
#include <unistd.h>

inline void needRoot() {
  if (::geteuid() != 0) GTEST_SKIP() << "NOT TESTED: this needs root";
}
// Ends the test that it stands in.
#define NEED_ROOT()                         \
  do {                                      \
    needRoot();                             \
    if (testing::Test::IsSkipped()) return; \
  } while (false)

#endif  // QX_TESTS_SHARE_NEED_ROOT_H
