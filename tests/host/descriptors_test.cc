#include "host/descriptors.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cerrno>

namespace {

bool isOpen(int fd) { return fcntl(fd, F_GETFD) >= 0; }

/// What a child process that does this exits with.
template <typename Work>
int inChild(const Work& work) {
  const pid_t child = fork();
  if (child == 0) _exit(work());
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Descriptors, PairsAreConnectedAndClosedOnExec) {
  for (const host::FdPair& pair : {host::makePipe(), host::makeSocketPair()}) {
    ASSERT_TRUE(pair);
    ASSERT_EQ(write(pair.second.get(), "x", 1), 1);
    char byte = 0;
    EXPECT_EQ(read(pair.first.get(), &byte, 1), 1);
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(fcntl(pair.first.get(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(pair.second.get(), F_GETFD), FD_CLOEXEC);
  }
}

TEST(Descriptors, WhatCannotBeMadeIsNotThereAndErrnoSaysWhy) {
  EXPECT_EQ(inChild([] {
              const rlimit none{0, 0};
              setrlimit(RLIMIT_NOFILE, &none);
              if (host::makePipe() || errno != EMFILE) return 1;
              errno = 0;
              return host::makeSocketPair() || errno != EMFILE ? 2 : 0;
            }),
            0);
}

TEST(Descriptors, AllButTheKeptOnesAreClosedFromTheFirstOn) {
  EXPECT_EQ(inChild([] {
              for (const int fd : {20, 21, 22, 30, 31, 500}) dup2(STDERR_FILENO, fd);
              host::closeAllBut({30, -1, 21, 3000}, 21);
              for (const int fd : {0, 1, 2, 20, 21, 30}) {
                if (!isOpen(fd)) return fd;
              }
              for (const int fd : {22, 31, 500}) {
                if (isOpen(fd)) return fd;
              }
              host::closeAllBut({2});
              return isOpen(2) && !isOpen(0) && !isOpen(1) && !isOpen(20) ? 0 : 1;
            }),
            0);
}

}  // namespace
