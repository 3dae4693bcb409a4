// Template packages of a container.
#ifndef QX_NODE_PACKAGES_H
#define QX_NODE_PACKAGES_H

#include <string>

#include "host/container.h"
#include "node/host.h"

namespace node {

/// Checks that the container's private area and its OS template exist and
/// returns a line that says that nothing needs synchronising: templates here are
/// whole file trees, not sets of shared packages. Throws Error: kNotFound, or
/// kBadConfig when the container names no template.
std::string syncPackages(const Container& container);

}  // namespace node

#endif
