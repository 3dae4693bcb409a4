// Feeds any bytes to the parsers of the container host's library; the first byte
// picks the parser. They must neither crash nor throw anything but their error,
// and what they write must read back. A share of what the reader of shell variables
// accepts is read by /bin/sh as well, as nobody and with no program to run. Run as root:
//
//   build/fuzz/tests/fuzz/node_parsers_fuzz tests/fuzz/corpus/node_parsers
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "host/error.h"
#include "host/fd.h"
#include "host/leases.h"
#include "host/lock.h"
#include "host/migration_record.h"
#include "host/mounts.h"
#include "host/netlink.h"
#include "host/shell_vars.h"
#include "host/state.h"
#include "node/quota_table.h"
#include "node/runscript.h"

namespace {

// What /bin/sh makes of the text: the variables' values, each with a zero byte behind it.
std::string readByShell(const std::string& text, const host::ShellVars& vars) {
  std::string script = text + "\nprintf '%s\\0' x";
  for (const auto& [name, value] : vars) script += " \"$" + name + "\"";
  script += "\n";
  const host::Fd input(memfd_create("script", MFD_CLOEXEC));
  const host::Fd output(memfd_create("values", MFD_CLOEXEC));
  if (write(input.get(), script.data(), script.size()) < 0) abort();
  lseek(input.get(), 0, SEEK_SET);
  const pid_t shell = fork();
  if (shell == 0) {
    dup2(input.get(), 0);
    dup2(output.get(), 1);
    const rlimit none{1 << 20, 1 << 20};
    const rlimit seconds{2, 2};
    setrlimit(RLIMIT_FSIZE, &none);
    setrlimit(RLIMIT_CPU, &seconds);
    if (chdir("/proc/self") != 0 || setgid(65534) != 0 || setuid(65534) != 0) _exit(99);
    const char* const arguments[] = {"sh", nullptr};
    const char* const environment[] = {"PATH=/nonexistent", "HOME=/h", "VEID=101", nullptr};
    execve("/bin/sh", const_cast<char**>(arguments), const_cast<char**>(environment));
    _exit(99);
  }
  int status = 0;
  if (shell < 0 || waitpid(shell, &status, 0) != shell) abort();
  if (status != 0) return "the shell ended with status " + std::to_string(status);
  std::string values(static_cast<size_t>(lseek(output.get(), 0, SEEK_END)), '\0');
  if (pread(output.get(), values.data(), values.size(), 0) < 0) abort();
  return values;
}

// What means something else to a shell by its name, or nothing at all as a carriage
// return does to us.
bool isForUsAlone(const std::string& text, const host::ShellVars& vars) {
  for (const char* name : {"IFS", "OPTIND", "LINENO", "PPID", "PWD", "OLDPWD", "PATH"})
    if (vars.contains(name)) return true;
  return text.find_first_of(std::string_view("\r\0", 2)) != text.npos;
}

void compareWithShell(const std::string& text) {
  const host::ShellVars vars = host::parseOwnShellVars(text, {{"VEID", "101"}});
  static unsigned accepted = 0;
  const bool wanted = accepted < 50 || accepted % 100 == 0;
  ++accepted;
  if (!wanted || geteuid() != 0 || isForUsAlone(text, vars)) return;
  std::string expected("x\0", 2);
  for (const auto& [name, value] : vars) expected += value + '\0';
  if (readByShell(text, vars) != expected) abort();
}

void shellVars(const std::string& text) {
  host::parseShellVars(text, {{"VEID", "101"}});
  const host::ShellVars vars = host::parseOwnShellVars(text, host::idAsWritten());
  const std::string written = host::formatShellVars(vars);
  if (host::parseOwnShellVars(written, host::idAsWritten()) != vars) abort();
  if (host::formatShellVars(host::parseOwnShellVars(written, host::idAsWritten())) != written)
    abort();
  compareWithShell(text);
  compareWithShell(written);
}

void quotaTable(const std::string& text) {
  const std::string once = node::formatQuotaTable(node::parseQuotaTable(text));
  if (node::formatQuotaTable(node::parseQuotaTable(once)) != once) abort();
}

void migrationRecord(const std::string& text) {
  const std::string once = host::formatRecord(host::parseRecord(text));
  if (host::formatRecord(host::parseRecord(once)) != once) abort();
}

void parse(char which, const std::string& text) {
  switch (which) {
    case 's':
      return shellVars(text);
    case 'q':
      return quotaTable(text);
    case 'j':
      return migrationRecord(text);
    case 'm':
      host::parseMountInfo(text);
      host::parseMountTable(text);
      return;
    case 'n':
      host::parseLinks(text);
      host::parseAddresses(text);
      return;
    case 'l':
      host::dhclientLeaseGrants(text, "eth0", "192.0.2.7");
      host::keyValueLeaseGrants(text, "192.0.2.7");
      return;
    case 'i':
      host::parseProcessRecord(text);
      host::parseStartTime(text);
      host::parseLockHolder(text);
      return;
    default:
      node::scriptInterpreter(text);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  try {
    parse(static_cast<char>(data[0]), std::string(data + 1, data + size));
  } catch (const host::Error&) {
    // Malformed text is refused so.
  }
  return 0;
}
