// Puts what the workers ask of the framework on record: a runner that runs nothing,
// and the calls that end a stage. A program that links recorded_framework.cc has
// this runner in the place of the agent's.
#ifndef QX_TESTS_MIGRATE_RECORDED_FRAMEWORK_H
#define QX_TESTS_MIGRATE_RECORDED_FRAMEWORK_H

#include <deque>
#include <string>
#include <vector>

struct RecordedFramework {
  // In order: "runner 16384", "setfd 1 IN", "execWithOnlyError 0 80000: PROGRAM ARGUMENT...",
  // "base finish", "endCommand 0" and so on.
  std::vector<std::string> calls;

  // What the runners are to answer; used up from the front, then 0 and null.
  std::deque<int> statuses;
  std::deque<std::string> chunks;  // of gets
  std::deque<int> more;            // of execComplexGet
  int startResult = 0;             // of execAsync and execComplexBegin

  // What the host's status call is to answer, and the bits it was asked for.
  int statusResult = 0;
  unsigned int statusMask = 0;
  int statusAsked = -1;

  // Whether the lock of container 101 was there at each of these calls.
  std::vector<std::string> locked;

  static RecordedFramework& instance();
};

#endif
