// Containers and the host's own start and end.
//
// systemd starts qx-containers.service after the file systems of all private areas
// were mounted, and ends it before they are unmounted. Which these are, a generator
// tells it: a program that systemd runs before it does anything else.
#ifndef QX_NODE_BOOT_H
#define QX_NODE_BOOT_H

#include <string>
#include <vector>

#include "host/container.h"
#include "node/host.h"

namespace node {

inline constexpr char kBootService[] = "qx-containers.service";

/// Those with ONBOOT=yes, in the order in which they are started: by BOOTORDER, which
/// is a number, those without it last; of the same number, by id. Throws Error
/// (kBadConfig) for another value of ONBOOT than yes and no, or a malformed number.
std::vector<Container> bootOrder(std::vector<Container> containers);

/// The unit by which systemd knows what is mounted on `path`.
std::string mountUnit(const std::string& path);

/// A drop-in of the service, with which it waits for the mounts on the way to each
/// private area. A mount that fails keeps no other container from being started.
std::string bootDropIn(const std::vector<Container>& containers);

}  // namespace node

#endif
