#ifndef QX_SHARE_ENGINE_RULES_H
#define QX_SHARE_ENGINE_RULES_H

#include <string>
#include <string_view>
#include <vector>

namespace engine {

/// The exclusions of a copy, with the meaning that rsync gives to --exclude.
class Rules {
 public:
  /// Whether a pattern has a meaning here. Those that are more than a pattern to
  /// rsync ("- x", "+ x", "!") or nothing at all have none.
  static bool understands(std::string_view pattern);

  Rules() = default;
  explicit Rules(const std::vector<std::string>& patterns);

  /// Whether an entry is left out: its path below the top of the copy, and
  /// whether it is a directory. What lies in a directory that is left out is
  /// not asked about.
  bool excludes(std::string_view path, bool directory) const;

  const std::vector<std::string>& patterns() const { return patterns_; }

 private:
  struct Rule {
    std::string pattern;
    bool anchored = false;       ///< to the top
    bool directoryOnly = false;  ///< "x/"
    bool anyDepth = false;       ///< holds "**"
    bool wild = false;           ///< *, ? and [ mean something
    bool withContents = false;   ///< "x/***": the directory too
  };
  static Rule parse(std::string_view pattern);
  static bool matches(const Rule& rule, std::string_view path, bool directory);
  static bool matchesPath(const Rule& rule, std::string_view pattern, std::string_view path);

  std::vector<std::string> patterns_;
  std::vector<Rule> rules_;
};

/// Whether a text is what a pattern with wildcards means: "?" and "*" take no
/// slash, "**" takes any bytes, "[...]" one byte of a class, a backslash the byte
/// behind it.
bool wildcardMatches(std::string_view pattern, std::string_view text);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_RULES_H
