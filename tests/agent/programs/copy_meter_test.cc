// What programs called rsync write is read from the kernel's accounts.
#include "agent/programs/copy_meter.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "support/temp_tree.h"

using agent::CopyMeter;
using test_support::TempTree;

namespace {

// A shell under another name, which writes 200,000 bytes and waits.
class Writer {
 public:
  explicit Writer(const std::string& name) {
    const std::string program = folder_.root() + "/" + name;
    std::filesystem::copy_file("/bin/dash", program);
    int ready[2];
    EXPECT_EQ(pipe(ready), 0);
    pid_ = fork();
    if (pid_ == 0) {
      dup2(ready[1], 1);
      execl(program.c_str(), name.c_str(), "-c",
            "i=0; while [ $i -lt 200 ]; do printf %1000s x >/dev/null; i=$((i + 1)); done;"
            "printf y; kill -STOP $$",
            nullptr);
      _exit(127);
    }
    close(ready[1]);
    char byte = 0;
    EXPECT_EQ(read(ready[0], &byte, 1), 1);
    close(ready[0]);
  }
  ~Writer() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }

 private:
  TempTree folder_;
  pid_t pid_ = -1;
};

TEST(CopyMeter, ThereIsNothingWithoutACopy) {
  const Writer writer("other");
  EXPECT_FALSE(CopyMeter().read());
}

TEST(CopyMeter, CountsWhatRsyncWritesAndHowFast) {
  CopyMeter meter;
  const CopyMeter::Clock::time_point now;
  {
    const Writer writer("rsync");
    const auto amount = meter.read(now);
    ASSERT_TRUE(amount);
    EXPECT_GE(amount->bytes, 200000);
    EXPECT_LT(amount->bytes, 201000);
    EXPECT_EQ(amount->perSecond, 0);
  }
  // It has ended, and what it had written stays.
  const auto later = meter.read(now + std::chrono::seconds(1));
  ASSERT_TRUE(later);
  EXPECT_GE(later->bytes, 200000);
  EXPECT_EQ(later->perSecond, 0);
}

TEST(CopyMeter, OfSeveralTheOneThatHasWrittenMostCounts) {
  const Writer first("rsync"), second("rsync");
  const auto amount = CopyMeter().read();
  ASSERT_TRUE(amount);
  EXPECT_LT(amount->bytes, 201000);
}

}  // namespace
