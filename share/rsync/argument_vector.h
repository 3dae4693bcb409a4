#ifndef QX_SHARE_RSYNC_ARGUMENT_VECTOR_H
#define QX_SHARE_RSYNC_ARGUMENT_VECTOR_H

#include <string>
#include <vector>

namespace qxrsync {

/// A program and its arguments in the form that execv wants.
class ArgumentVector {
 public:
  ArgumentVector(std::string program, const std::vector<std::string>& arguments);
  char* const* data() const { return pointers_.data(); }

 private:
  std::vector<std::string> words_;
  std::vector<char*> pointers_;
};

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_ARGUMENT_VECTOR_H
