// Everything about a directory tree that a copy of it has to carry over, as text
// that two trees can be compared by.
#ifndef QX_TESTS_SHARE_TREE_PICTURE_H
#define QX_TESTS_SHARE_TREE_PICTURE_H

#include <map>
#include <string>

// From each name below the root ("." is the root itself) to its type, mode,
// owner, modification time in nanoseconds, size, device numbers, link target,
// contents, extended attributes (access lists and file capabilities among them)
// and the first name of the same file. Paths of any length.
std::map<std::string, std::string> pictureOf(const std::string& root);

// What differs between the pictures of two trees, one line for each name, so
// that a failed comparison is readable; empty if nothing does.
std::string differences(const std::string& root, const std::string& otherRoot);

#endif  // QX_TESTS_SHARE_TREE_PICTURE_H
