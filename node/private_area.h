// A container's private area: a directory, for root only, that holds
//   fs/             the container's file tree
//   .qx-image       the file system that is mounted there, where it lies on one
//   .ostemplate     the name of the OS template it was made from, if any
//   .qx-registered  when and from what it became a startable container
//   .qx-quota       the disk limits of its users and groups (quota_table.h)
#ifndef QX_NODE_PRIVATE_AREA_H
#define QX_NODE_PRIVATE_AREA_H

#include <optional>
#include <string>

#include "host/container.h"
#include "node/host.h"
#include "node/storage.h"

namespace node {

/// Makes an empty private area; its parents too. What an interrupted run left
/// (no tree yet, or an empty one) is completed. Throws Error: kExists when
/// there is something in it, and what makeTree throws. A failed attempt leaves
/// nothing but parents.
void makePrivateArea(const std::string& privateArea, const StoragePlan& plan = {});

/// Fills the container's new private area from an OS template (template.h) and
/// writes the template marker. It appears complete or not at all. Throws Error:
/// kExists when there is one already, kNotFound when there is no such template.
void makePrivateAreaFromTemplate(const Container& container, const std::string& templateName);

/// Removes what was being made of a private area when its maker died. Throws Error.
void removeUnfinishedArea(const std::string& privateArea);

/// Removes a private area with all it holds, without leaving its file system but
/// for subvolumes in its tree.
/// Throws Error: kBusy when something is mounted in it, kBadConfig when it holds
/// entries that no private area has, as a directory named by mistake would.
void removePrivateArea(const std::string& privateArea);

/// Whether the tree can be started or run scripts in: it has an init program or
/// a shell, looked up as the container would.
bool isSystemTree(const std::string& tree);

/// The name of the template that the private area was made from; empty if none.
std::string storedTemplate(const Container& container);

/// Marks the container as registered: as startable. The marker holds shell
/// variables REGISTERED (UTC time) and SOURCE ("template NAME" or "files").
/// False when it was registered before; the marker is left alone then. Throws
/// Error: kNotFound when there is no tree or it does not look like a system.
bool registerContainer(const Container& container);

struct Registration {
  std::string time;    ///< as in 2024-05-01T12:00:00Z
  std::string source;  ///< "template NAME" or "files"
};
/// Nothing when the container is not registered. Throws Error.
std::optional<Registration> registration(const Container& container);

}  // namespace node

#endif
