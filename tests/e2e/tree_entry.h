// One entry of a file tree, with everything that a faithful copy keeps.
#ifndef QX_TESTS_E2E_TREE_ENTRY_H
#define QX_TESTS_E2E_TREE_ENTRY_H

#include <sys/stat.h>

#include <map>
#include <string>
#include <vector>

namespace treediff {

struct Entry {
  struct stat info = {};
  std::string target;                         // of a symbolic link
  std::map<std::string, std::string> xattrs;  // ACLs and file capabilities among them
};

// Reads the entry itself, no link is followed. False when there is none; throws
// std::runtime_error when there is one that cannot be read.
bool readEntry(const std::string& path, Entry& entry);

// The names in a directory, sorted by bytes, without "." and "..". Throws
// std::runtime_error.
std::vector<std::string> listDirectory(const std::string& path);

// Two regular files hold the same bytes. Throws std::runtime_error.
bool sameContent(const std::string& left, const std::string& right);

}  // namespace treediff

#endif
