#include "agent/programs/versions.h"

#include <dlfcn.h>

#include <sstream>
#include <stdexcept>

#include "agent/framework/plugin.h"
#include "agent/transport/bundle.h"
#include "host/file.h"
#include "host/product.h"
#include "host/text.h"

namespace agent {

namespace {

using host::textf;

constexpr char kVersionSymbol[] = "qxLinMigrateVersion";

std::string pluginLine() {
  const std::string path = Plugin::defaultPath();
  void* const handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL);
  if (handle == nullptr) return textf("plug-in    missing: %s\n", dlerror());
  const auto* const version = static_cast<const char*>(dlsym(handle, kVersionSymbol));
  const std::string text =
      textf("plug-in    %-9s %s\n", version ? version : "unknown", path.c_str());
  dlclose(handle);
  return text;
}

/// Of what is sent: "NAME VERSION" on each line, beside the bundle.
std::string bundleLines() {
  try {
    const Bundle bundle = findBundle();
    std::string text;
    const std::string folder = bundle.path.substr(0, bundle.path.rfind('/'));
    std::istringstream words(host::readFile(folder + "/bundle.versions").value_or(""));
    for (std::string name, version; words >> name >> version;) {
      text += textf("%-10s %-9s %s\n", name.c_str(), version.c_str(), bundle.path.c_str());
    }
    return text.empty() ? textf("qxagent    unknown   %s\n", bundle.path.c_str()) : text;
  } catch (const std::runtime_error& problem) {
    return textf("qxagent    missing: %s\n", problem.what());
  }
}

}  // namespace

std::string versionsText() {
  std::string text = textf("qxmigrate  %s\n", host::productVersion().c_str());
  text += pluginLine() + bundleLines();
  text.pop_back();
  return text;
}

}  // namespace agent
