// What may differ between a server and its copy, and why.
#ifndef QX_TESTS_E2E_EXPECTATIONS_H
#define QX_TESTS_E2E_EXPECTATIONS_H

#include <set>
#include <string>
#include <vector>

namespace treediff {

// One line of a list of expectations:
//
//   PATTERN  ASPECT[,ASPECT...]  REASON
//
// PATTERN is a path from the root of the tree, "/"; "*" and "?" do not match
// "/", and a "/**" at the end stands for everything below. ASPECT is one of
// those that differences have (see difference.h), or "any"; "excluded" says that
// the source is not looked at there, and that the copy must have nothing.
// Empty lines and lines that begin with "#" say nothing.
struct Expectation {
  std::string pattern;
  std::set<std::string> aspects;
  std::string reason;
  unsigned used = 0;

  bool matches(const std::string& path) const;
};

class Expectations {
 public:
  // Adds the lines of a text. Throws std::runtime_error that names a bad one.
  void add(const std::string& text);
  // The first that allows this difference; it is counted as used. Null if none.
  const Expectation* allow(const std::string& path, const std::string& aspect);
  // The source's entry is not to be copied.
  bool excludes(const std::string& path) const;

  const std::vector<Expectation>& all() const { return items_; }

 private:
  std::vector<Expectation> items_;
};

}  // namespace treediff

#endif
