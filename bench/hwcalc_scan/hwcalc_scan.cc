// The calculator's memory scan on a machine with 2,000 processes and 100,000
// mappings, against smem, in one run.
//
//   hwcalc_scan [PROCESSES [MAPPINGS_EACH]]
//
// Both run as programs of their own, in a pid namespace with just those processes.
// Prints the best time and the largest memory of three rounds each, and the ratios.
// Ends with 1 when the scan took 1 second or 64 MiB or more. smem does more: it
// reads smaps, in which the kernel counts each mapping's pages; it is what an
// administrator would ask the same question with. Needs root; without smem, only
// the scan is measured.
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "hwcalc/hw_calc.h"

namespace {

constexpr std::size_t PAGE = 4096;
constexpr int ROUNDS = 3;
constexpr double LIMIT_SECONDS = 1.0;
constexpr double LIMIT_MIB = 64.0;

[[noreturn]] void die(const char* what) {
  std::perror(what);
  std::exit(2);
}

int ownMappings() {
  std::ifstream maps("/proc/self/maps");
  int count = 0;
  for (std::string line; std::getline(maps, line);) ++count;
  return count;
}

// Gives this process so many mappings: pages apart from each other, read-only and
// writable ones in turn.
void mapUntil(int wanted) {
  char* at = reinterpret_cast<char*>(0x200000000000);
  for (int have = ownMappings(); have < wanted; ++have, at += 2 * PAGE) {
    const int protection = have % 2 == 0 ? PROT_READ : PROT_READ | PROT_WRITE;
    if (mmap(at, PAGE, protection, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0) ==
        MAP_FAILED) {
      die("mmap");
    }
  }
}

void populate(int processes, int mappingsEach) {
  for (int i = 0; i < processes; ++i) {
    int ready[2];
    if (pipe(ready) != 0) die("pipe");
    const pid_t pid = fork();
    if (pid == -1) die("fork");
    if (pid == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      mapUntil(mappingsEach);
      close(ready[0]);
      close(ready[1]);
      for (;;) pause();
    }
    close(ready[1]);
    char byte;
    while (read(ready[0], &byte, 1) > 0) {
    }
    close(ready[0]);
  }
}

struct Run {
  bool succeeded = false;
  double seconds = 0;
  double mib = 0;
};

// Runs a program to its end, its output thrown away.
Run timed(const std::vector<const char*>& command) {
  std::fflush(stdout);
  const auto start = std::chrono::steady_clock::now();
  const pid_t pid = fork();
  if (pid == -1) die("fork");
  if (pid == 0) {
    if (std::freopen("/dev/null", "w", stdout) == nullptr) _exit(127);
    std::vector<char*> argv;
    for (const char* word : command) argv.push_back(const_cast<char*>(word));
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    _exit(127);
  }
  int status = 0;
  rusage usage{};
  if (wait4(pid, &status, 0, &usage) != pid) die("wait4");
  const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
  return {WIFEXITED(status) && WEXITSTATUS(status) == 0, spent.count(),
          static_cast<double>(usage.ru_maxrss) / 1024};
}

// The best time and the largest memory.
Run best(const std::vector<const char*>& command) {
  Run result = timed(command);
  for (int round = 1; round < ROUNDS; ++round) {
    const Run run = timed(command);
    result.succeeded = result.succeeded && run.succeeded;
    result.seconds = std::min(result.seconds, run.seconds);
    result.mib = std::max(result.mib, run.mib);
  }
  return result;
}

void print(const char* name, const Run& run) {
  std::printf("%-16s %8.3f s %8.1f MiB\n", name, run.seconds, run.mib);
}

int scan() {
  QXHWCalc calculator;
  QXHWCalc::PhysParams params;
  if (calculator.calcMemInfo(&params) != QXHWCalc::EC_OK) return 1;
  std::printf("%u\n", params.privvmpages);
  return 0;
}

int compare(const char* self, int processes, int mappingsEach) {
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) die("mount /");
  if (mount("proc", "/proc", "proc", 0, nullptr) != 0) die("mount /proc");
  populate(processes, mappingsEach);
  std::printf("%d processes, %d mappings\n", processes, processes * mappingsEach);
  std::fflush(stdout);
  const Run ours = best({self, "--scan"});
  if (!ours.succeeded) {
    std::fprintf(stderr, "the scan failed\n");
    return 2;
  }
  print("memory scan", ours);
  const Run theirs = best({"smem", "-t"});
  if (theirs.succeeded) {
    print("smem -t", theirs);
    std::printf("ratio            %8.1f x %8.1f x\n", theirs.seconds / ours.seconds,
                theirs.mib / ours.mib);
  } else {
    std::printf("smem is not installed: no comparison\n");
  }
  const bool kept = ours.seconds < LIMIT_SECONDS && ours.mib < LIMIT_MIB;
  std::printf("%s: less than %.0f s and %.0f MiB\n", kept ? "kept" : "NOT KEPT", LIMIT_SECONDS,
              LIMIT_MIB);
  return kept ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--scan") == 0) return scan();
  const int processes = argc > 1 ? std::atoi(argv[1]) : 2000;
  const int mappingsEach = argc > 2 ? std::atoi(argv[2]) : 50;
  char self[4096] = {};
  if (readlink("/proc/self/exe", self, sizeof(self) - 1) == -1) die("readlink");
  if (unshare(CLONE_NEWPID | CLONE_NEWNS) != 0) die("unshare (needs root)");
  // The first process of the namespace: when it ends, all others do.
  const pid_t first = fork();
  if (first == -1) die("fork");
  if (first == 0) {
    const int status = compare(self, processes, mappingsEach);
    std::fflush(stdout);
    _exit(status);
  }
  int status = 0;
  if (waitpid(first, &status, 0) != first) die("waitpid");
  return WIFEXITED(status) ? WEXITSTATUS(status) : 2;
}
