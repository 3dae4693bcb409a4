// Runs a piece of a test in a child process, so that it may change what belongs
// to the process (descriptors, limits, working directory, namespaces) or die:
//
//   runInChild([] {
//     close(0);
//     EXPECT_EQ(runscript("exit 3", out, err), 3);
//   });
//
// GoogleTest failures in the child, a GTEST_SKIP, an exception that leaves the
// body, a crash and a leak become failures (or the skip) of the test that called.
// The child is killed when the test process dies.
#ifndef QX_TESTS_SUPPORT_CHILD_TEST_H
#define QX_TESTS_SUPPORT_CHILD_TEST_H

#include <functional>
#include <string>
#include <vector>

namespace test_support {

void runInChild(const std::function<void()>& body);

// Passes when `body` ends the child by abort() after writing `text`, perhaps
// among other things, to standard error; this is what a failed assertion does.
void runInChildExpectingAbort(const std::function<void()>& body, const std::string& text);

// Thrown by the set-up of a child that cannot be made on this machine: the test
// is skipped, with the reason.
struct Unavailable {
  std::string reason;
};

// What ScratchHost builds on. `enter` runs in the child before the body and may
// itself fork: it must return in exactly one process, whose end is the child's.
struct ChildTest {
  std::function<void()> enter;
  std::function<void()> body;
  bool expectAbort = false;
  std::string abortText;
};
void runChildTest(const ChildTest& test);

// Something that the calling test has to record: a failure, or that it was not
// run. The file is empty where there is no place to name.
struct ChildResult {
  enum Kind : int { FAILURE, FATAL_FAILURE, SKIP, UNAVAILABLE };
  int kind = FAILURE;
  int line = 0;
  std::string file;
  std::string text;
};

// runChildTest without recording.
std::vector<ChildResult> collectChildTest(const ChildTest& test);

}  // namespace test_support

#endif  // QX_TESTS_SUPPORT_CHILD_TEST_H
