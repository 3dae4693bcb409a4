// What is sent to a server: the agent and all that it needs, in one archive.
#ifndef QX_AGENT_TRANSPORT_BUNDLE_H
#define QX_AGENT_TRANSPORT_BUNDLE_H

#include <cstdint>
#include <string>

namespace agent {

struct Bundle {
  std::string path;
  uint64_t bytes = 0;
  std::string sha256;  ///< 64 hexadecimal digits
};

/// Finds bundle.tar.gz with its bundle.sha256: in the directory that QX_BUNDLE_DIR
/// names, beside this program, in "../share/qxlinmigrate" from there, or where
/// the product was installed. Throws std::runtime_error.
Bundle findBundle();

}  // namespace agent

#endif
