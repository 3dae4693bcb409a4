// Which differences between a server and its container are as they should be.
#ifndef QX_AGENT_VERIFY_EXPLANATIONS_H
#define QX_AGENT_VERIFY_EXPLANATIONS_H

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_set>

#include "agent/verify/moments.h"
#include "agent/verify/tree_entry.h"

namespace agent {

/// What the adaptation to life in a container has changed, by the list that it keeps in
/// the container, lines of "PATH: WHAT".
class Edits {
 public:
  Edits() = default;
  explicit Edits(std::string_view list);

  /// Why this aspect of the entry may differ; empty when it is not an edit.
  std::string reasonFor(std::string_view path, const std::string& aspect) const;

 private:
  std::map<std::string, std::string, std::less<>> edited_;  // what was done to it
  std::set<std::string, std::less<>> above_;                // directories that hold edits
};

/// The list's place below the top of a container's tree.
inline constexpr char kEditsPath[] = "etc/qx-changes";

/// Judges differences, in the order of a list.
class Explanations {
 public:
  Explanations(Edits edits, Moments moments) : edits_(std::move(edits)), moments_(moments) {}

  /// Entries as they are met, before what is in them. Either may be null.
  void meet(const TreeEntry* server, const TreeEntry* container);

  /// The reason; empty when there is none. Either entry may be null.
  std::string reasonFor(const std::string& path, const std::string& aspect, const TreeEntry* server,
                        const TreeEntry* container) const;

 private:
  Edits edits_;
  Moments moments_;
  // Directories that were changed since.
  std::unordered_set<std::string> serverChanged_, containerChanged_;
};

}  // namespace agent

#endif
