// One container as its configuration and the host's settings describe it.
#ifndef QX_HOST_CONTAINER_H
#define QX_HOST_CONTAINER_H

#include <string>
#include <string_view>
#include <vector>

#include "host/shell_vars.h"

namespace host {

/// Container ids run from 1 to this.
inline constexpr unsigned kMaxCtid = 2147483644;

/// The id that `text` spells. Throws Error (kUsage).
unsigned parseCtid(std::string_view text);

struct Container {
  unsigned id = 0;
  bool configured = false;  ///< has a configuration file
  ShellVars vars;           ///< its variables over the host's; VEID is always set
  std::string root;         ///< VE_ROOT: where the tree is mounted
  std::string privateArea;  ///< VE_PRIVATE: what holds the tree
  std::string lockDir;      ///< LOCKDIR of the host's settings

  /// The container's file tree, a directory of the private area. The area has
  /// room beside it for what must not be seen inside the container.
  std::string tree() const;
  std::string inPrivateArea(const char* name) const { return privateArea + "/" + name; }
  std::string var(const char* name) const { return valueOf(vars, name); }
  /// DISK_QUOTA turns the disk limits of its users and groups off.
  bool hasNoDiskQuota() const;
};

/// The configuration file of a container.
std::string configPath(unsigned id);

/// Reads the host's settings and the container's configuration file. A
/// container without a configuration file comes back with the host's default
/// places. Throws Error (kBadConfig) when a file is malformed, or when the root
/// or the private area is not a path of its own (see checkPlace).
Container findContainer(unsigned id);

/// The same, but a missing configuration file throws Error (kNotFound).
Container loadContainer(unsigned id);

/// The ids that have a configuration file, ascending.
std::vector<unsigned> configuredIds();

/// Refuses (kBadConfig) a path that a container's root or private area must
/// not have because files there will be mounted over or removed: one that is
/// not absolute, holds empty, "." or ".." components, or is "/", a directory of
/// the system, or an ancestor of a place where the node keeps its own files.
/// `variable` is named in the error.
void checkPlace(const char* variable, const std::string& path);

/// Makes the configuration directory and its second name where they are
/// missing. Returns a warning when the second name is taken by something else,
/// otherwise an empty text. Throws Error.
std::string ensureConfigDirectory();

}  // namespace host

#endif
