// A temporary directory tree built from one expression and removed at the end:
//
//   TempTree tree({dirAt("empty"), fileAt("etc/fstab", "none\n"),
//                  fileAt("bin/run", "#!/bin/sh\n", 0755),
//                  linkAt("etc/mtab", "../proc/mounts")});
//   readFile(tree.path("etc/fstab"));
//
// Parent directories are made as needed, with mode 0755. Modes are set exactly,
// whatever the umask. A problem while building throws std::system_error.
#ifndef QX_TESTS_SUPPORT_TEMP_TREE_H
#define QX_TESTS_SUPPORT_TEMP_TREE_H

#include <sys/types.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace test_support {

struct TreeEntry {
  enum Kind { DIR, FILE, SYMLINK };
  Kind kind;
  std::string path;  // below the tree's root; a leading "/" is dropped
  std::string text;  // a file's contents, a symbolic link's target
  mode_t mode;
};

TreeEntry dirAt(std::string path, mode_t mode = 0755);
TreeEntry fileAt(std::string path, std::string contents, mode_t mode = 0644);
TreeEntry linkAt(std::string path, std::string target);

// Makes one entry below the directory `root`; an existing file is replaced, an
// existing directory gets the mode.
void makeEntry(const std::string& root, const TreeEntry& entry);

class TempTree {
 public:
  explicit TempTree(std::initializer_list<TreeEntry> entries = {});
  ~TempTree();
  TempTree(const TempTree&) = delete;
  TempTree& operator=(const TempTree&) = delete;

  void add(const TreeEntry& entry) { makeEntry(root_, entry); }

  const std::string& root() const { return root_; }
  std::string path(const std::string& relative) const { return root_ + "/" + relative; }

 private:
  std::string root_;
};

// A file's whole contents; throws std::system_error when it cannot be read.
std::string readFile(const std::string& path);

}  // namespace test_support

#endif  // QX_TESTS_SUPPORT_TEMP_TREE_H
