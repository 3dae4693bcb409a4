#include "node/packages.h"

#include "host/error.h"
#include "host/state.h"
#include "host/text.h"
#include "node/template.h"

namespace node {

std::string syncPackages(const Container& container) {
  if (!hasPrivateArea(container)) {
    fail(ExitCode::kNotFound, "container %u has no private area: there is no directory %s",
         container.id, container.privateArea.c_str());
  }
  const std::string name = container.var("OSTEMPLATE");
  if (name.empty()) {
    fail(ExitCode::kBadConfig, "%s names no OS template: OSTEMPLATE is not set",
         configPath(container.id).c_str());
  }
  const OsTemplate source = findTemplate(name);
  return textf("container %u owns all its packages: nothing to synchronise with %s", container.id,
               source.path.c_str());
}

}  // namespace node
