#include "share/rsync/direct_choice.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "host/fd.h"
#include "host/product.h"
#include "share/engine/tls_stream.h"
#include "share/rsync/environment.h"

namespace qxrsync {

namespace {

// Goes with the agent; empty for none.
std::string unreachableMark() {
  const std::string folder = host::agentFolder();
  return folder.empty() ? folder : folder + "/node-unreachable";
}

bool wasUnreachable() {
  const std::string mark = unreachableMark();
  return !mark.empty() && ::access(mark.c_str(), F_OK) == 0;
}

}  // namespace

bool directAllowed() { return environmentSays("QX_RSYNC_DIRECT", "auto", "off"); }

std::optional<engine::IpAddress> nodeToReach() {
  const char* address = std::getenv("QX_RSYNC_NODE");
  if (!directAllowed() || address == nullptr || wasUnreachable() || !engine::Key().make())
    return std::nullopt;
  return engine::IpAddress::parse(address);
}

void rememberUnreachable() {
  const std::string mark = unreachableMark();
  if (mark.empty()) return;
  const host::Fd made(::open(mark.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
}

}  // namespace qxrsync
