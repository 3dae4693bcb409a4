#include "expand/args_list.h"

namespace Expand {

ArgsList::ArgsList(const std::list<std::string>& args) : strings_(args.begin(), args.end()) {
  point();
}

ArgsList::ArgsList(const ArgsList& other) : strings_(other.strings_) { point(); }

ArgsList& ArgsList::operator=(const ArgsList& other) {
  strings_ = other.strings_;
  point();
  return *this;
}

void ArgsList::point() {
  pointers_.clear();
  for (std::string& string : strings_) pointers_.push_back(string.data());
  pointers_.push_back(nullptr);
}

}  // namespace Expand
