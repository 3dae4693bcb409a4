#ifndef QX_SHARE_ENGINE_PROBLEMS_H
#define QX_SHARE_ENGINE_PROBLEMS_H

#include <atomic>
#include <cstdint>
#include <string>

namespace engine {

/// What went wrong with single files, while the copy as a whole goes on. Each is
/// a line on standard error; too many of one run are only counted. Any thread may
/// use it.
class Problems {
 public:
  virtual ~Problems() = default;

  /// what is behind the path: "cannot read it: Input/output error".
  void add(const std::string& path, const std::string& what);
  /// The same for a call at the destination that failed, its errno at the end. Where
  /// every further one would fail too, as the disk is full or cannot be written to,
  /// throws Failure (status 11).
  void addAtDestination(const std::string& path, const char* what);
  /// A file that was there a moment ago, as happens on a live system.
  void addVanished(const std::string& path);

  std::uint64_t count() const { return count_; }
  bool any() const { return count_ > 0; }

 protected:
  /// Also to the other end, where there is one that wants to know.
  virtual void pass(const std::string& line);

 private:
  void say(const std::string& line);

  std::atomic<std::uint64_t> count_{0};
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_PROBLEMS_H
