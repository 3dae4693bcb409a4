// Only in coverage builds: takes the place of the C library's execve and _exit, so
// that a child process writes its counters before they are lost with it.
#include <sys/syscall.h>
#include <unistd.h>

extern "C" {

void __gcov_dump();
void __gcov_reset();

int execve(const char* path, char* const argv[], char* const envp[]) noexcept {
  __gcov_dump();
  // Else a failed exec would count everything twice.
  __gcov_reset();
  return static_cast<int>(syscall(SYS_execve, path, argv, envp));
}

void _exit(int status) {
  __gcov_dump();
  for (;;) syscall(SYS_exit_group, status);
}
}
