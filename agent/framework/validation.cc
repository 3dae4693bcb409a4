#include "agent/framework/validation.h"

#include <algorithm>
#include <cctype>

#include "host/address.h"
#include "host/container.h"
#include "host/visible.h"

namespace agent {

namespace {

// Bytes above 127 are part of names; everything else that a shell might take for
// more than a letter is not.
bool isPlain(char c) {
  const unsigned char byte = static_cast<unsigned char>(c);
  return byte > 127 || isalnum(byte) ||
         std::string_view("/._-+:@%=,").find(c) != std::string_view::npos;
}

std::string refuseCharacter(const std::string& what, const std::string& value, char c) {
  // A blank and a tab look alike.
  const std::string shown = c == '\t' ? "'\\t'" : quotedText(std::string(1, c));
  return what + " " + quotedText(value) + " holds the character " + shown +
         ", which cannot be passed to a command";
}

std::string checkName(const std::string& what, const std::string& name) {
  if (name.empty()) return what + " '' is empty";
  if (name == "." || name == ".." || name.find('/') != std::string::npos) {
    return what + " " + quotedText(name) + " is not a plain name";
  }
  for (const char c : name) {
    if (!isPlain(c)) return refuseCharacter(what, name, c);
  }
  return "";
}

}  // namespace

std::string quotedText(const std::string& value) {
  constexpr size_t kLongest = 256;  // bytes
  return "'" + host::visibleLine(value, kLongest) + "'";
}

std::string checkContainerId(long long ctid) {
  if (ctid >= 1 && ctid <= host::kMaxCtid) return "";
  return "container id " + std::to_string(ctid) + " is not between 1 and " +
         std::to_string(host::kMaxCtid);
}

std::string checkExclusion(const std::string& pattern) {
  const std::string what = "exclusion";
  if (pattern.empty() || pattern[0] != '/') {
    return what + " " + quotedText(pattern) + " is not an absolute path";
  }
  for (const char c : pattern) {
    const bool allowed = isPlain(c) || c == '*' || c == '?' || c == '[' || c == ']' || c == '~';
    if (!allowed) return refuseCharacter(what, pattern, c);
  }
  return "";
}

std::string checkRoot(const char* name, const std::string& path) {
  if (path.empty() || path[0] != '/')
    return std::string(name) + " " + quotedText(path) + " is not an absolute path";
  std::string plain = path;
  for (const std::string id : {"${VEID}", "$VEID"}) {
    for (size_t at; (at = plain.find(id)) != std::string::npos;) plain.replace(at, id.size(), "0");
  }
  for (const char c : plain) {
    if (!isPlain(c)) return refuseCharacter(name, path, c);
  }
  if (plain.find_first_not_of('/') == std::string::npos) {
    return std::string(name) + " " + quotedText(path) + " is the root of the host";
  }
  if ((plain + "/").find("/../") != std::string::npos) {
    return std::string(name) + " " + quotedText(path) + " has a '..' in it";
  }
  return "";
}

std::string checkDistribution(const std::string& name) { return checkName("distribution", name); }

std::string checkService(const std::string& name) { return checkName("service", name); }

std::string checkAddress(const std::string& text) {
  if (text == "dhcp" || text == "auto" || host::isInterfaceAddress(text)) return "";
  return "the address '" + text +
         "' is none: ADDRESS/PREFIX such as 192.0.2.10/24, \"dhcp\" or \"auto\" is expected";
}

std::string checkNameserver(const std::string& text) {
  return host::isAddress(text) ? "" : "the name server '" + text + "' is not a valid address";
}

std::string checkRecord(const QXA::QXAMigrateP2VSerializerParams& record) {
  std::string problem = checkContainerId(record.ctid);
  for (const std::string& pattern : record.options.excludes) {
    if (problem.empty()) problem = checkExclusion(pattern);
  }
  for (const QXL::QXLService& service : record.options.services) {
    if (problem.empty()) problem = checkService(service.name);
  }
  if (!problem.empty() || !record.options.config) return problem;

  const QXA::QXAEnvConfig& config = *record.options.config;
  std::optional<std::string> path;
  config.getVERootVar(path);
  if (path) problem = checkRoot("VE_ROOT", *path);
  config.getVEPrivateVar(path);
  if (problem.empty() && path) problem = checkRoot("VE_PRIVATE", *path);
  std::optional<QXA::QXADistribution> distribution;
  config.getDistribution(distribution);
  if (problem.empty() && distribution) {
    problem = checkDistribution(distribution->name + distribution->version);
  }
  std::optional<QXA::QXAOsTemplate> osTemplate;
  config.getOsTemplate(osTemplate);
  if (problem.empty() && osTemplate && !osTemplate->name.empty()) {
    problem = checkName("OS template", osTemplate->name);
  }
  return problem;
}

}  // namespace agent
