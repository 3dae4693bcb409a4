// A server with fixed figures: all measuring programs are the test's.
#ifndef QX_TESTS_HWCALC_MEASURED_HOST_H
#define QX_TESTS_HWCALC_MEASURED_HOST_H

#include "support/scratch_host.h"

// 42 processes, 17 descriptors, 1234 pages of shared memory, 5 locks, 8 lines of
// rules, 2 routes, 4001234 kilobytes and 123456 inodes in use. Sockets are those of
// the machine, and the memory scan meets the processes of the scratch host.
inline test_support::ScratchHost measuredHost() {
  test_support::ScratchHost host;
  host.tool("/usr/bin/ps", {.script = "seq 42"});
  host.tool("/usr/bin/ls", {.script = "seq 17"});
  host.tool("/usr/bin/ipcs", {.out = "\n------ Shared Memory Status --------\n"
                                     "segments allocated 3\npages allocated 1234\n"});
  host.file("/proc/locks", "1\n2\n3\n4\n5\n");
  host.tool("/usr/sbin/iptables", {.script = "seq 8"});
  host.tool("/usr/sbin/ip", {.script = "seq 2"});
  host.tool("/usr/bin/df", {.script = "if [ \"$1\" = -k ]; then\n"
                                      "echo 'Filesystem 1K-blocks Used Available Use% Mounted on'\n"
                                      "echo '/dev/sda1 10000000 4000000 5500000 43% /'\n"
                                      "echo '/dev/sda2 2000000 1234 1 1% /home'\n"
                                      "else\n"
                                      "echo 'Filesystem Inodes IUsed IFree IUse% Mounted on'\n"
                                      "echo '/dev/sda1 600000 123456 1 1% /'\n"
                                      "fi\n"});
  return host;
}

#endif
