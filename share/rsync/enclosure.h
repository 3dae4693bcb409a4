#ifndef QX_SHARE_RSYNC_ENCLOSURE_H
#define QX_SHARE_RSYNC_ENCLOSURE_H

#include <string>
#include <vector>

namespace qxrsync {

/// What a process that writes what a stranger sends gets to see of this machine.
///
/// Its root holds the destination, the programs and libraries of this machine (to be
/// read), this program's own folder, and /dev/null; no other file, process, network or
/// memory of the machine. It has the rights of root that writing files needs, and none
/// of those that reach further (host/confine.h). Devices on the destination cannot be
/// opened, nor set-id programs run.
class Enclosure {
 public:
  /// The flags of clone that go with it.
  static int namespaces();

  /// destination  as stock rsync is told it; made if only its last part is missing
  /// attributes   those that only root may see are written, too
  /// folders      that are written as well, where they exist
  Enclosure(std::string destination, bool attributes, std::vector<std::string> folders = {});

  /// In the new namespaces: closes this process in for ever, and all that it starts.
  /// Throws Failure; the process is fit for nothing then but ending. Mount points below
  /// the destination are not seen inside.
  void enter() const;

 private:
  std::string destination_;
  bool attributes_;
  std::vector<std::string> folders_;
};

/// Whether this process may make one at all. Others have nothing to lose.
bool canEnclose();

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_ENCLOSURE_H
