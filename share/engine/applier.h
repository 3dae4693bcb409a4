#ifndef QX_SHARE_ENGINE_APPLIER_H
#define QX_SHARE_ENGINE_APPLIER_H

#include <cstdint>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "share/engine/placing.h"

namespace engine {

/// What all lanes of a receiver share.
struct Copy {
  Copy(const Tree& ofTree, const Rules& ofRules, AttributeKinds ofKinds, Problems& toProblems)
      : tree(ofTree), rules(ofRules), kinds(ofKinds), problems(toProblems) {}

  const Tree& tree;
  const Rules& rules;
  AttributeKinds kinds;
  Problems& problems;
  bool wasEmpty = false;         ///< nothing was there when the copy began
  bool keepsNanoseconds = true;  ///< of modification times
  /// Asks the other end for entries of a directory. Throws Failure.
  std::function<void(const std::string& directory, const std::vector<std::string>& names)> want;

  std::mutex mutex;                              ///< for what follows
  std::set<std::string> askedAgain;              ///< arrived damaged once
  std::set<std::pair<dev_t, ino_t>> linkedOnes;  ///< files with several names
};

/// One lane of the receiver: does what its records say. One thread uses it, but
/// for abandon().
class Applier {
 public:
  explicit Applier(Copy& copy);

  /// All records of one frame. Throws ProtocolError for what cannot be, and
  /// Failure.
  void apply(std::string_view records);

  /// Stops for ever: what comes later is passed over, and a new file that is not
  /// yet whole is removed. What it was to replace stays. Any thread may call it.
  void abandon();

 private:
  void applyOne(Decoder& from);
  void beginDirectory(Decoder& from);
  void endDirectory(Decoder& from);
  void takeWhole(Decoder& from);
  void beginFile(Decoder& from, bool patch);
  void takeData(Decoder& from);
  void endFile(Decoder& from);
  void compare(Decoder& from);
  bool agrees(const Entry& entry, const struct stat& status, bool hasLinks);
  void updateWhatDiffers(const Entry& entry, const struct stat& status);
  void link(Decoder& from);
  void damaged(const Entry& entry);
  void removeUnfinished();
  void removeUnnamed();
  bool write(int file, std::string_view bytes, std::uint64_t offset, std::string_view name);
  void name(std::string_view name);
  void needDirectory() const;

  Copy& copy_;
  std::mutex mutex_;  ///< held while one record is done
  bool abandoned_ = false;
  Placer placer_;
  Entry scratch_;

  bool inDirectory_ = false;
  Fd directory_;  ///< not open: it could not be opened, all in it is passed over
  std::string path_;
  bool cleaning_ = false;             ///< what is not named is to go
  std::vector<std::uint64_t> named_;  ///< hashes of names
  std::vector<std::string> wanted_;

  bool inFile_ = false;
  bool patching_ = false;
  bool fileFailed_ = false;
  Fd file_;
  Entry fileEntry_;
  std::string fileName_;    ///< what fileEntry_ points to
  std::string unfinished_;  ///< what has this name is not whole yet; may be empty
  std::uint64_t fileEnd_ = 0;
  Digester digester_;
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_APPLIER_H
