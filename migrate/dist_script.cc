#include "migrate/dist_script.h"

#include "expand/conf_parser.h"
#include "framework/errors.h"

namespace P2V {

namespace {

std::string confPath(const std::string& base) {
  return std::string(kDistsDirectory) + "/" + base + ".conf";
}

std::string withoutLeadingDot(const std::string& name) {
  return name.compare(0, 1, ".") == 0 ? name.substr(1) : name;
}

// The distribution's file: that of its version, else that of its name; empty when
// neither exists.
std::string findConf(const QXA::QXADistribution& distribution) {
  std::string versioned = confPath(withoutLeadingDot(distributionText(distribution)));
  if (QXL::fentryExists(versioned, 0)) return versioned;
  if (distribution.version.empty()) return "";
  const std::string unversioned = confPath(withoutLeadingDot(distribution.name));
  return QXL::fentryExists(unversioned, 0) ? unversioned : "";
}

}  // namespace

std::string distributionText(const std::optional<QXA::QXADistribution>& distribution) {
  if (!distribution) return "";
  if (distribution->name.empty() || distribution->version.empty()) return distribution->name;
  return distribution->name + "-" + distribution->version;
}

std::string findDistScript(const std::optional<QXA::QXADistribution>& distribution,
                           const std::string& key) {
  if (!distribution) return "";
  const std::string path = findConf(*distribution);
  if (path.empty()) return "";
  std::string script;
  try {
    Expand::ConfParser parser;
    parser.init(Expand::ConfParser::FROM_FILE, path);
    Expand::Config config;
    parser.parse(config);
    config["GLOBAL"][key].value(script);
  } catch (const Expand::Error&) {
    return "";
  }
  return script.empty() ? "" : std::string(kDistsDirectory) + "/scripts/" + script;
}

}  // namespace P2V
