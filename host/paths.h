// Where the node keeps its things.
#ifndef QX_HOST_PATHS_H
#define QX_HOST_PATHS_H

namespace host {

/// ID.conf for each container; dists/ with the distribution table.
inline constexpr char kConfigDir[] = "/etc/sysconfig/qx-scripts";
/// Another name of the same place: a symbolic link to it.
inline constexpr char kConfigLink[] = "/etc/qx/conf";
/// The host's settings, in shell-variable format. Optional.
inline constexpr char kHostConfig[] = "/etc/qx/qx.conf";
/// Where private areas and roots are unless the settings say otherwise.
inline constexpr char kPrivateDir[] = "/var/lib/qx/private";
inline constexpr char kRootDir[] = "/var/lib/qx/root";
/// OS templates: directories NAME and archives NAME.tar, NAME.tar.gz, …
inline constexpr char kTemplateDir[] = "/var/lib/qx/template";
/// The rsync program, and where dpkg lists what is installed.
inline constexpr char kRsyncProgram[] = "/usr/local/share/qxlinmigrate/rsync";
inline constexpr char kPackageList[] = "/var/lib/dpkg/status";
/// What lasts until the next boot: ID.init of running containers, and the locks.
inline constexpr char kRunDir[] = "/run/qx";
/// The tool that works on containers.
inline constexpr char kQxctl[] = "/usr/sbin/qxctl";

/// Defaults of the host's settings of the same names.
inline constexpr char kDefaultLockDir[] = "/run/qx/lock";
inline constexpr char kDefaultRoot[] = "/var/lib/qx/root/$VEID";
inline constexpr char kDefaultPrivate[] = "/var/lib/qx/private/$VEID";

/// Inside a private area. The library writes the template marker there; names
/// that begin with ".qx-" are the node's own.
inline constexpr char kTreeName[] = "fs";
inline constexpr char kTemplateMarker[] = ".ostemplate";
inline constexpr char kOwnPrefix[] = ".qx-";
inline constexpr char kRegistrationMarker[] = ".qx-registered";
/// The ext4 file system that a tree may lie on (storage.h).
inline constexpr char kImageFile[] = ".qx-image";
inline constexpr char kQuotaFile[] = ".qx-quota";
/// Exists while the guest's files lag behind the configuration.
inline constexpr char kAdaptMarker[] = ".qx-adapt";

}  // namespace host

#endif
