#include "agent/transport/bundle.h"

#include <cstdlib>
#include <filesystem>
#include <vector>

#include "agent/system/file_io.h"
#include "agent/system/last_error.h"

namespace agent {

int findBundle(Bundle& bundle) {
  std::error_code error;
  const std::filesystem::path here =
      std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
  std::vector<std::filesystem::path> folders;
  if (const char* named = getenv("QX_BUNDLE_DIR")) {
    folders = {named};
  } else {
    folders = {here, here / "../share/qxlinmigrate", "/usr/local/share/qxlinmigrate"};
  }
  for (const std::filesystem::path& folder : folders) {
    const std::filesystem::path archive = (folder / "bundle.tar.gz").lexically_normal();
    if (!std::filesystem::exists(archive, error)) continue;
    std::string digest;
    if (readFile((folder / "bundle.sha256").lexically_normal(), digest) != 0) return -1;
    bundle.path = archive;
    bundle.bytes = std::filesystem::file_size(archive, error);
    bundle.sha256 = digest.substr(0, 64);
    if (bundle.sha256.size() != 64 ||
        bundle.sha256.find_first_not_of("0123456789abcdef") != std::string::npos) {
      return fail((folder / "bundle.sha256").string() + " holds no SHA-256 digest");
    }
    return 0;
  }
  return fail("bundle.tar.gz, the agent for servers, is missing from " + folders.back().string());
}

}  // namespace agent
