// Finds where a copy of a tree is not what the tree is.
#ifndef QX_TESTS_E2E_DIFFERENCE_H
#define QX_TESTS_E2E_DIFFERENCE_H

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "e2e/expectations.h"
#include "e2e/tree_entry.h"

namespace treediff {

// The aspects:
//   missing, added     the entry is in one tree only
//   type               of file, for instance directory and symbolic link
//   mode, owner, time  permission bits; numeric ids; modification time in ns
//   size, content      of regular files
//   target, device     of a symbolic link; numbers of a device node
//   links              which names are one file
//   xattrs             ACLs and file capabilities among them
//   holes              the source is sparse there, the copy is not
struct Difference {
  std::string path;
  std::string aspect;
  std::string text;
  bool expected = false;
};

struct Report {
  unsigned long long entries = 0;  // compared
  unsigned long long files = 0;    // regular ones among them
  unsigned long long bytes = 0;    // in those
  std::vector<Difference> differences;

  size_t unexpected() const;
};

class Comparison {
 public:
  Comparison(std::string source, std::string copy, Expectations& expectations)
      : source_(std::move(source)), copy_(std::move(copy)), expectations_(expectations) {}
  // Throws std::runtime_error when a tree cannot be read.
  Report run();

 private:
  void visit(const std::string& path);
  void visitBoth(const std::string& path, const Entry& source, const Entry& copy);
  void visitNames(const std::string& path, bool inSource, bool inCopy);
  void compareFiles(const std::string& path, const Entry& source, const Entry& copy);
  void compareLinks(const std::string& path, const Entry& source, const Entry& copy);
  void differ(const std::string& path, const std::string& aspect, const std::string& text);

  // The name under which a file with several was seen first.
  using LinkGroups = std::map<std::pair<dev_t, ino_t>, std::string>;

  std::string source_;
  std::string copy_;
  Expectations& expectations_;
  LinkGroups sourceLinks_;
  LinkGroups copyLinks_;
  Report report_;
};

// A path with bytes that a terminal should not get replaced by \xNN.
std::string printable(const std::string& bytes);

}  // namespace treediff

#endif
