// The last bytes of a stream.
#ifndef QX_AGENT_SYSTEM_TAIL_BUFFER_H
#define QX_AGENT_SYSTEM_TAIL_BUFFER_H

#include <string>
#include <string_view>

namespace agent {

/// Keeps the last `limit` bytes of all that was added.
class TailBuffer {
 public:
  explicit TailBuffer(size_t limit) : limit_(limit) {}

  void add(std::string_view bytes) {
    text_.append(bytes);
    // Cut seldom, so that a long stream costs one move per limit bytes.
    if (text_.size() > 2 * limit_) text_.erase(0, text_.size() - limit_);
  }
  void clear() { text_.clear(); }
  std::string text() const {
    return text_.size() > limit_ ? text_.substr(text_.size() - limit_) : text_;
  }

 private:
  size_t limit_;
  std::string text_;
};

}  // namespace agent

#endif
