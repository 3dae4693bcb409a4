#include "share/rsync/argument_vector.h"

#include <utility>

namespace qxrsync {

ArgumentVector::ArgumentVector(std::string program, const std::vector<std::string>& arguments) {
  words_.push_back(std::move(program));
  words_.insert(words_.end(), arguments.begin(), arguments.end());
  for (std::string& word : words_) pointers_.push_back(word.data());
  pointers_.push_back(nullptr);
}

}  // namespace qxrsync
