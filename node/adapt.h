// Bringing a changed configuration into a container's files.
#ifndef QX_NODE_ADAPT_H
#define QX_NODE_ADAPT_H

#include <string>

#include "host/container.h"
#include "node/host.h"

namespace node {

/// The distribution's script that adapts a tree to the configuration, from the
/// distribution table; empty when the distribution is unknown.
std::string adaptationScript(const std::string& distribution);

/// Whether the guest's own files hold the variable, so that they must be
/// adapted when it changes.
bool isGuestVariable(const std::string& variable);

/// Marks the container: its files no longer are what the configuration says.
void markForAdaptation(const Container& container);

/// Runs the distribution's script in a marked container that is not running and
/// takes the mark away. A container that is not marked is left alone, as one
/// whose script ran at its migration. Without a script the mark just goes, with
/// a warning on standard error. Throws Error, when the script fails, too.
void adaptIfChanged(const Container& container);

}  // namespace node

#endif
