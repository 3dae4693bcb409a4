#include "node/template.h"

#include <array>

#include "host/error.h"
#include "host/file.h"
#include "host/paths.h"
#include "host/process.h"
#include "node/host.h"

namespace node {
namespace {

constexpr char kNameCharacters[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._+-";
constexpr std::array kArchiveSuffixes{".tar", ".tar.gz", ".tgz", ".tar.xz", ".tar.zst", ".tar.bz2"};

}  // namespace

OsTemplate findTemplate(const std::string& name) {
  const std::string plain = name.starts_with('.') ? name.substr(1) : name;
  if (plain.empty() || plain.find_first_not_of(kNameCharacters) != plain.npos || plain[0] == '.') {
    fail(ExitCode::kBadConfig, "invalid OS template name '%s'", name.c_str());
  }
  const std::string path = std::string(kTemplateDir) + "/" + plain;
  if (isDirectory(path)) return {path, false};
  for (const char* suffix : kArchiveSuffixes) {
    if (exists(path + suffix)) return {path + suffix, true};
  }
  fail(ExitCode::kNotFound,
       "OS template '%s' was not found: there is neither a directory %s nor an archive %s.tar, "
       ".tar.gz, .tgz, .tar.xz, .tar.zst or .tar.bz2",
       plain.c_str(), path.c_str(), path.c_str());
}

void unpackTemplate(const OsTemplate& source, const std::string& tree) {
  if (source.archive) {
    runProgram({"tar", "--extract", "--preserve-permissions", "--same-owner", "--numeric-owner",
                "--acls", "--xattrs", "--xattrs-include=*", "--directory", tree, "--file",
                source.path});
  } else {
    runProgram(
        {"cp", "--archive", "--reflink=auto", "--no-target-directory", "--", source.path, tree});
  }
}

}  // namespace node
