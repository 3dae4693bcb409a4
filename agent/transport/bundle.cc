#include "agent/transport/bundle.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include "agent/system/last_error.h"
#include "host/file.h"
#include "host/process.h"
#include "host/product.h"

namespace agent {

Bundle findBundle() {
  std::error_code error;
  const std::filesystem::path here = std::filesystem::path(host::ownProgram()).parent_path();
  std::vector<std::filesystem::path> folders;
  if (const char* named = getenv("QX_BUNDLE_DIR")) {
    folders = {named};
  } else {
    folders = {here, here / "../share/qxlinmigrate", host::productFolder()};
  }
  for (const std::filesystem::path& folder : folders) {
    const std::filesystem::path archive = (folder / "bundle.tar.gz").lexically_normal();
    if (!std::filesystem::exists(archive, error)) continue;
    const std::string digestPath = (folder / "bundle.sha256").lexically_normal();
    const std::optional<std::string> digest = host::readFile(digestPath);
    if (!digest) throw std::runtime_error("cannot read " + digestPath + ": " + errnoText(errno));
    Bundle bundle;
    bundle.path = archive;
    bundle.bytes = std::filesystem::file_size(archive, error);
    bundle.sha256 = digest->substr(0, 64);
    if (bundle.sha256.size() != 64 ||
        bundle.sha256.find_first_not_of("0123456789abcdef") != std::string::npos) {
      throw std::runtime_error(digestPath + " holds no SHA-256 digest");
    }
    return bundle;
  }
  throw std::runtime_error("bundle.tar.gz, the agent for servers, is missing from " +
                           folders.back().string());
}

}  // namespace agent
