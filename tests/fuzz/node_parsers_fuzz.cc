// Feeds any bytes to the parsers of the container host's library; the first byte
// picks the parser. They must neither crash nor throw anything but their error,
// and what they write must read back. Run:
//
//   build/fuzz/tests/fuzz/node_parsers_fuzz tests/fuzz/corpus/node_parsers
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "host/error.h"
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

void shellVars(const std::string& text) {
  host::parseShellVars(text, {{"VEID", "101"}});
  const host::ShellVars vars = host::parseOwnShellVars(text, host::idAsWritten());
  if (host::parseOwnShellVars(host::formatShellVars(vars), host::idAsWritten()) != vars) abort();
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
