#ifndef QX_EXPAND_ARGS_LIST_H
#define QX_EXPAND_ARGS_LIST_H

#include <list>
#include <string>
#include <vector>

#include "expand/export.h"

namespace Expand {

/// A null-terminated array of C strings, as execve wants it for arguments and
/// environment. It owns copies of the strings; the array and the strings stay
/// where they are as long as the object lives and is not assigned to.
class EXPAND_API ArgsList {
 public:
  explicit ArgsList(const std::list<std::string>& args);
  ArgsList(const ArgsList& other);
  ArgsList& operator=(const ArgsList& other);
  ~ArgsList() = default;

  /// The array; never null itself.
  char* const* get() const { return pointers_.data(); }

 private:
  void point();

  std::vector<std::string> strings_;
  std::vector<char*> pointers_;
};

}  // namespace Expand

#endif  // QX_EXPAND_ARGS_LIST_H
