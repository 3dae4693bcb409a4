#ifndef QX_SHARE_ENGINE_HARD_LINKS_H
#define QX_SHARE_ENGINE_HARD_LINKS_H

#include <sys/types.h>

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace engine {

/// The files with several names that were met on a walk. The first name carries
/// the contents; the others become links to it when everything is there. Any
/// thread may use it.
class HardLinks {
 public:
  struct First {
    std::string path;
    bool changed = true;  ///< the other end gets it anew
  };
  struct Link {
    std::string path;
    std::string first;
  };

  /// The first name of this file, if another one was met before; else this is it.
  std::optional<First> meet(dev_t device, ino_t inode, const std::string& path);
  /// The first name of this file is at the other end as it is to be.
  void setUnchanged(dev_t device, ino_t inode);
  void addLink(std::string path, std::string first);

  /// Those to be made, in the order of their paths; afterwards there are none.
  std::vector<Link> takeLinks();
  /// For another walk.
  void forget();

 private:
  std::mutex mutex_;
  std::map<std::pair<dev_t, ino_t>, First> firsts_;
  std::vector<Link> links_;
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_HARD_LINKS_H
