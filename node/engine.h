// The life of a container. Each function works on the container as it is and
// leaves it as it was when it fails, unless it says otherwise. None takes the
// lock; the caller does (lock.h). All throw Error.
#ifndef QX_NODE_ENGINE_H
#define QX_NODE_ENGINE_H

#include "host/container.h"
#include "node/host.h"

namespace node {

/// Whether there was anything to do.
enum class Outcome { kDone, kAlready };

/// Makes the private area from the OS template that the configuration names in
/// OSTEMPLATE, and registers the container when that is a whole system (a
/// template may also be a mere base to be filled later).
void createContainer(const Container& container);

/// Mounts the tree on the root, which is made if need be.
Outcome mountContainer(const Container& container);

/// Unmounts the root. kNotMounted when it is not mounted; kBusy when the
/// container runs or something uses its files, named if it can be found.
void umountContainer(const Container& container);

/// Makes a filled private area a registered, startable container.
Outcome convertContainer(const Container& container);

/// Removes the container: unmounts it and removes its private area, its root
/// directory and its configuration file, the last at the end, so that an
/// interrupted removal can be repeated. kNotFound when there is neither a
/// private area nor a configuration file.
void destroyContainer(const Container& container);

}  // namespace node

#endif
