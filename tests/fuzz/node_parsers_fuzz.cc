// Feeds any bytes to the parsers of the container host's library; the first byte
// picks the parser. They must neither crash nor throw anything but their error,
// and what they write must read back. Run:
//
//   build/fuzz/tests/fuzz/node_parsers_fuzz tests/fuzz/corpus/node_parsers
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "node/error.h"
#include "node/leases.h"
#include "node/lock.h"
#include "node/mounts.h"
#include "node/netlink.h"
#include "node/quota_table.h"
#include "node/runscript.h"
#include "node/shell_vars.h"
#include "node/state.h"

namespace {

void shellVars(const std::string& text) {
  std::string again;
  const node::ShellVars vars = node::parseShellVars(text, {{"VEID", "101"}});
  for (const auto& [name, value] : vars) again += name + "=" + node::shellQuoted(value) + "\n";
  if (node::parseShellVars(again) != vars) abort();
}

void quotaTable(const std::string& text) {
  const std::string once = node::formatQuotaTable(node::parseQuotaTable(text));
  if (node::formatQuotaTable(node::parseQuotaTable(once)) != once) abort();
}

void parse(char which, const std::string& text) {
  switch (which) {
    case 's':
      return shellVars(text);
    case 'q':
      return quotaTable(text);
    case 'm':
      node::parseMountPoints(text);
      return;
    case 'n':
      node::parseLinks(text);
      node::parseAddresses(text);
      return;
    case 'l':
      node::dhclientLeaseGrants(text, "eth0", "192.0.2.7");
      node::keyValueLeaseGrants(text, "192.0.2.7");
      return;
    case 'i':
      node::parseProcessRecord(text);
      node::parseStartTime(text);
      node::parseLockHolder(text);
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
  } catch (const node::Error&) {
    // Malformed text is refused so.
  }
  return 0;
}
