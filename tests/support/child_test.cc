#include "support/child_test.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <system_error>
#include <vector>

// Writes the coverage counters of this process; there only in coverage builds.
extern "C" void __gcov_dump() __attribute__((weak));

namespace test_support {
namespace {

// What the child tells the parent: a sequence of records, each the fields of a
// ChildResult with the lengths of the texts in front. This one, of a kind beyond
// the others, says that the body has come to its end.
constexpr int FINISHED = 100;

void writeAll(int fd, const void* data, size_t size) {
  const char* at = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t put = write(fd, at, size);
    if (put == -1 && errno == EINTR) continue;
    if (put <= 0) return;  // the parent is gone
    at += put;
    size -= static_cast<size_t>(put);
  }
}

void writeRecord(int fd, const ChildResult& record) {
  std::string bytes;
  const auto number = [&bytes](int value) {
    bytes.append(reinterpret_cast<const char*>(&value), sizeof(value));
  };
  number(record.kind);
  number(record.line);
  for (const std::string* text : {&record.file, &record.text}) {
    number(static_cast<int>(text->size()));
    bytes += *text;
  }
  writeAll(fd, bytes.data(), bytes.size());
}

std::string readAll(int fd) {
  std::string all;
  char chunk[4096];
  for (;;) {
    const ssize_t got = read(fd, chunk, sizeof(chunk));
    if (got == -1 && errno == EINTR) continue;
    if (got <= 0) return all;
    all.append(chunk, static_cast<size_t>(got));
  }
}

std::vector<ChildResult> parseRecords(const std::string& bytes) {
  std::vector<ChildResult> records;
  size_t at = 0;
  const auto number = [&](int& value) {
    if (bytes.size() - at < sizeof(value)) return false;
    std::memcpy(&value, &bytes[at], sizeof(value));
    at += sizeof(value);
    return true;
  };
  const auto text = [&](std::string& value) {
    int size = 0;
    if (!number(size) || bytes.size() - at < static_cast<size_t>(size)) return false;
    value = bytes.substr(at, static_cast<size_t>(size));
    at += static_cast<size_t>(size);
    return true;
  };
  for (ChildResult record;
       number(record.kind) && number(record.line) && text(record.file) && text(record.text);) {
    records.push_back(record);
  }
  return records;
}

// In the child: sends what GoogleTest records to the parent, which prints it.
class Forwarder : public testing::EmptyTestEventListener {
 public:
  explicit Forwarder(int fd) : fd_(fd) {}

  void OnTestPartResult(const testing::TestPartResult& result) override {
    if (result.passed()) return;
    const int kind = result.skipped()          ? ChildResult::SKIP
                     : result.fatally_failed() ? ChildResult::FATAL_FAILURE
                                               : ChildResult::FAILURE;
    writeRecord(fd_, {kind, result.line_number(),
                      result.file_name() != nullptr ? result.file_name() : "", result.message()});
  }

 private:
  int fd_;
};

void dumpCountersAndAbort(int) {
  if (__gcov_dump != nullptr) __gcov_dump();
  signal(SIGABRT, SIG_DFL);
  raise(SIGABRT);
}

[[noreturn]] void runChild(const ChildTest& test, pid_t parent, int reportFd, int errorsFd) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(1);
  testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
  delete listeners.Release(listeners.default_result_printer());
  delete listeners.Release(listeners.default_xml_generator());
  // A child of a child: its results go to the first child alone.
  static Forwarder* forwarder = nullptr;
  if (forwarder != nullptr) delete listeners.Release(forwarder);
  forwarder = new Forwarder(reportFd);
  listeners.Append(forwarder);
  try {
    if (test.enter) test.enter();
    if (test.expectAbort) {
      dup2(errorsFd, STDERR_FILENO);
      signal(SIGABRT, dumpCountersAndAbort);
    }
    test.body();
  } catch (const Unavailable& unavailable) {
    writeRecord(reportFd, {ChildResult::UNAVAILABLE, 0, "", unavailable.reason});
  } catch (const std::exception& error) {
    ADD_FAILURE() << "exception in the child: " << error.what();
  } catch (...) {
    ADD_FAILURE() << "exception of an unknown type in the child";
  }
  writeRecord(reportFd, {FINISHED, 0, "", ""});
  std::cout.flush();
  // With the exit handlers: they look for leaks and write coverage counters.
  std::exit(0);
}

std::string describe(int status) {
  if (WIFSIGNALED(status)) {
    return std::string("the child was killed by signal ") + strsignal(WTERMSIG(status));
  }
  return "the child ended with status " + std::to_string(WEXITSTATUS(status));
}

void record(const ChildResult& result) {
  const char* const file = result.file.empty() ? nullptr : result.file.c_str();
  switch (result.kind) {
    case ChildResult::SKIP:
      [&] { GTEST_SKIP() << result.text; }();
      break;
    case ChildResult::UNAVAILABLE:
      std::fprintf(stderr, "SKIPPED, this machine cannot run the test: %s\n", result.text.c_str());
      [&] { GTEST_SKIP() << result.text; }();
      break;
    case ChildResult::FATAL_FAILURE:
      GTEST_MESSAGE_AT_(file, result.line, result.text.c_str(),
                        testing::TestPartResult::kFatalFailure);
      break;
    default:
      ADD_FAILURE_AT(file, result.line) << result.text;
  }
}

[[noreturn]] void failed(const char* call) {
  throw std::system_error(errno, std::generic_category(), call);
}

}  // namespace

std::vector<ChildResult> collectChildTest(const ChildTest& test) {
  std::cout.flush();
  std::fflush(nullptr);
  int pipe[2];
  if (pipe2(pipe, O_CLOEXEC) != 0) failed("pipe2");
  const int errors = memfd_create("errors", MFD_CLOEXEC);
  if (errors == -1) failed("memfd_create");

  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid == -1) failed("fork");
  if (pid == 0) {
    // Out of the way of bodies that close or count low descriptors.
    const int report = fcntl(pipe[1], F_DUPFD_CLOEXEC, 200);
    const int highErrors = fcntl(errors, F_DUPFD_CLOEXEC, 200);
    for (const int fd : {pipe[0], pipe[1], errors}) close(fd);
    runChild(test, parent, report, highErrors);
  }
  close(pipe[1]);
  std::vector<ChildResult> results = parseRecords(readAll(pipe[0]));
  close(pipe[0]);
  int status = 0;
  while (waitpid(pid, &status, 0) == -1 && errno == EINTR) {
  }
  lseek(errors, 0, SEEK_SET);
  const std::string errorText = readAll(errors);
  close(errors);

  bool finished = false;
  bool notRun = false;
  if (!results.empty() && results.back().kind == FINISHED) {
    finished = true;
    results.pop_back();
  }
  for (const ChildResult& result : results) {
    notRun = notRun || result.kind == ChildResult::UNAVAILABLE || result.kind == ChildResult::SKIP;
  }
  const auto fail = [&results](const std::string& text) {
    results.push_back({ChildResult::FAILURE, 0, "", text});
  };
  if (test.expectAbort && !notRun) {
    if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGABRT) {
      fail("expected an abort, but " + describe(status) + "; its standard error:\n" + errorText);
    } else if (errorText.find(test.abortText) == std::string::npos) {
      fail("expected \"" + test.abortText + "\" in the standard error:\n" + errorText);
    }
  } else if (status != 0 || !finished) {
    fail(describe(status) + (finished ? " after" : " before") + " the end of the body");
  }
  return results;
}

void runChildTest(const ChildTest& test) {
  for (const ChildResult& result : collectChildTest(test)) record(result);
}

void runInChild(const std::function<void()>& body) {
  runChildTest({.enter = {}, .body = body, .expectAbort = false, .abortText = ""});
}

void runInChildExpectingAbort(const std::function<void()>& body, const std::string& text) {
  runChildTest({.enter = {}, .body = body, .expectAbort = true, .abortText = text});
}

}  // namespace test_support
