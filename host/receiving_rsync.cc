#include "host/receiving_rsync.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <sstream>
#include <string_view>

#include "host/error.h"
#include "host/file.h"
#include "host/paths.h"
#include "host/process.h"
#include "host/product.h"
#include "host/settings.h"

namespace host {
namespace {

constexpr std::string_view kFaults = "CVE-2024-12084 to 12088 and CVE-2024-12747";
// The first of the project's own versions without them.
constexpr std::array<int, 2> kFixedVersion{3, 4};

/// Debian's older versions, mended: that and every later update.
struct Update {
  std::string_view version;
  int number;
};
constexpr std::array<Update, 2> kFixedUpdates{{{"3.2.3-4+deb11u", 2}, {"3.2.7-1+deb12u", 1}}};

/// The number that a text begins with; nothing when it begins with none.
std::optional<int> leadingNumber(std::string_view text) {
  int value = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || stop == text.data() || value < 0) return std::nullopt;
  return value;
}

/// "3.2.7" of "rsync  version 3.2.7  protocol version 31".
std::string versionIn(const std::string& text) {
  std::istringstream words(text);
  std::string program;
  std::string word;
  std::string version;
  words >> program >> word >> version;
  if (program != "rsync" || word != "version") return "";
  return version.starts_with('v') ? version.substr(1) : version;
}

bool isFixedVersion(const std::string& version) {
  const size_t dot = version.find('.');
  const auto major = leadingNumber(version);
  const auto minor = dot == std::string::npos
                         ? std::nullopt
                         : leadingNumber(std::string_view(version).substr(dot + 1));
  if (!major || !minor) return false;
  return std::array{*major, *minor} >= kFixedVersion;
}

bool isFixedUpdate(const std::string& version, const std::string& package) {
  // One that somebody has put in its place is not the package's.
  if (!package.starts_with(version + "-")) return false;
  for (const Update& update : kFixedUpdates) {
    if (!package.starts_with(update.version)) continue;
    const auto number = leadingNumber(std::string_view(package).substr(update.version.size()));
    return number && *number >= update.number;
  }
  return false;
}

/// The version of an installed package, from the list that dpkg keeps; empty when there
/// is no such package, or no dpkg.
std::string packageVersion(const std::string& list, const std::string& name) {
  std::istringstream lines(list);
  bool here = false;
  for (std::string line; std::getline(lines, line);) {
    constexpr std::string_view kName = "Package: ";
    constexpr std::string_view kVersion = "Version: ";
    if (line.starts_with(kName)) here = line.substr(kName.size()) == name;
    if (here && line.starts_with(kVersion)) return line.substr(kVersion.size());
  }
  return "";
}

bool oldOneIsAllowed(const ShellVars& settings) {
  const std::string value = settingOf(settings, "OLD_RSYNC");
  if (value != "" && value != "yes" && value != "no") {
    fail(ExitCode::kBadConfig, "OLD_RSYNC: '%s' is neither \"yes\" nor \"no\"", value.c_str());
  }
  return value == "yes";
}

}  // namespace

std::string unfixedRsync(const std::string& version, const std::string& package) {
  const std::string number = versionIn(version);
  if (number.empty()) return "what is at /usr/bin/rsync does not say which version of rsync it is";
  if (isFixedVersion(number) || isFixedUpdate(number, package)) return "";
  return "rsync " + (package.empty() ? number : package) + " of this host lacks the mends of " +
         std::string(kFaults) + ", by which a server could run programs here";
}

RsyncProblem receivingRsyncProblem(const ShellVars& settings) {
  const bool allowed = oldOneIsAllowed(settings);
  std::string version;
  try {
    version = outputOf({rsyncProgram(), "--version"});
  } catch (const Error& error) {
    std::string text = error.what();
    std::replace(text.begin(), text.end(), '\n', ' ');
    return {text, false};
  }
  const std::string list = readFile(kPackageList).value_or("");
  const std::string text = unfixedRsync(version, packageVersion(list, "rsync"));
  return {text, allowed && !text.empty()};
}

}  // namespace host
