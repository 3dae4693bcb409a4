#ifndef QX_SHARE_ENGINE_IDLE_SHARE_H
#define QX_SHARE_ENGINE_IDLE_SHARE_H

#include <cstdint>
#include <string>

namespace engine {

/// How much of this machine's processors nobody uses. Source: proc(5), /proc/stat.
class IdleShare {
 public:
  IdleShare();

  /// 0 to 1, since the last call or the beginning; 1 where it cannot be told.
  double next();

  /// The pure half: takes the text of /proc/stat.
  double next(const std::string& text);

 private:
  std::uint64_t idle_ = 0;   ///< in the kernel's ticks, of all processors
  std::uint64_t total_ = 0;  ///<
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_IDLE_SHARE_H
