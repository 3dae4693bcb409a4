// Reading a list that another machine, or another thread, writes.
#ifndef QX_AGENT_VERIFY_LIST_READER_H
#define QX_AGENT_VERIFY_LIST_READER_H

#include <atomic>
#include <optional>
#include <string>

#include "agent/verify/tree_entry.h"

namespace agent {

/// Takes the entries of a list (see listTree) one by one. The writer is not trusted:
/// lengths, fields and the order are checked.
class ListReader {
 public:
  /// `whose`, such as "the server's list", begins the errors. Reading ends when
  /// `endFd`, which may be -1, becomes readable. Both descriptors stay the caller's.
  /// Once `written` (may be null) says that the writer claims to have written all of it,
  /// what is still on its way is waited for half a minute.
  ListReader(int fd, int endFd, const std::atomic<bool>* written, std::string whose)
      : fd_(fd), endFd_(endFd), written_(written), whose_(std::move(whose)) {}

  /// The writer's clock. Throws std::runtime_error.
  std::int64_t clock();

  /// The next entry; nothing at the end of a list that is whole. Throws
  /// std::runtime_error when it ends too soon or holds what no list does.
  std::optional<TreeEntry> next();

 private:
  void need(size_t count);
  [[noreturn]] void refuse(const std::string& why) const;

  int fd_;
  int endFd_;
  const std::atomic<bool>* written_;
  std::string whose_;
  std::string bytes_;
  size_t at_ = 0;
  std::optional<std::string> last_;
};

}  // namespace agent

#endif
