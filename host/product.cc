#include "host/product.h"

#include <cstdlib>

#include "host/paths.h"

namespace host {
namespace {

constexpr char kProductRoot[] = QX_PRODUCT_ROOT;
constexpr char kPluginFolder[] = QX_PLUGIN_DIR;
constexpr char kVersion[] = QX_VERSION;
constexpr char kVariable[] = "QXA_TMPDIR";

std::string variable() {
  const char* const value = getenv(kVariable);
  return value == nullptr ? "" : value;
}

}  // namespace

std::string productVersion() { return kVersion; }

std::string productRoot() { return kProductRoot; }

std::string productFolder() {
  const std::string rsync = rsyncProgram();
  return rsync.substr(0, rsync.rfind('/'));
}

std::string pluginFolder() { return kPluginFolder; }

std::string rsyncProgram() { return productRoot() + kRsyncProgram; }

void offerProductFiles() {
  if (variable().empty() && !productRoot().empty()) setenv(kVariable, kProductRoot, 1);
}

std::string agentFolder() {
  const std::string folder = variable();
  return folder == productRoot() ? "" : folder;
}

}  // namespace host
