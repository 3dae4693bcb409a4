#ifndef QX_SHARE_ENGINE_PLACING_H
#define QX_SHARE_ENGINE_PLACING_H

#include <sys/stat.h>

#include <optional>
#include <string>

#include "share/engine/attributes.h"
#include "share/engine/beneath.h"
#include "share/engine/problems.h"
#include "share/engine/records.h"
#include "share/engine/rules.h"

namespace engine {

/// Puts entries into one open directory after the other, under their own names,
/// and never through a symbolic link. What goes wrong with an entry is a problem.
/// One thread uses it.
class Placer {
 public:
  Placer(AttributeKinds kinds, const Rules& rules, Problems& problems)
      : kinds_(kinds), rules_(rules), problems_(problems) {}

  /// The directory that names are of from now on: made ready for new entries, which
  /// must inherit nothing from it. Not owned.
  void enter(int directory, const std::string& path);

  /// A new, empty file in place of whatever has the name; open for writing.
  Fd create(const Entry& entry);
  /// The same, but what has the name, if it is no directory and there is room for
  /// both, stays until takePlace(). name: what the new one is called until then.
  Fd createBeside(const Entry& entry, std::string& name);
  /// Gives a file of createBeside the name of its entry.
  void takePlace(const Entry& entry, const std::string& name);
  /// A new file could not be brought whole: what has its name must not have its time.
  void tellApart(const Entry& entry) const;
  /// The file of that name, as it is; not open if there is none.
  Fd openExisting(const std::string& name) const;
  /// Owner, mode, attributes and, last of all, times. isNew: made by create just now.
  void finish(int file, const Entry& entry, bool isNew);

  /// A symbolic link, device, fifo or socket; what is there stays if it is the same.
  void placeOther(const Entry& entry);
  /// Owner, mode, attributes and times of what is there already. False when it is
  /// not there or of another kind.
  bool update(const Entry& entry);
  /// A directory, as yet without anything of its own.
  void placeDirectory(const std::string& name);
  /// The entered directory itself, when all is in it.
  void finishDirectory(const Entry& entry);
  bool remove(const std::string& name);

  const std::string& path() const { return path_; }

 private:
  struct Owner {
    uid_t uid;
    gid_t gid;
  };
  void problem(std::string_view name, const std::string& what);
  void failed(std::string_view name, const char* what);
  Fd createNamed(const std::string& name, const Entry& entry);
  bool hasRoomBeside(const Entry& entry) const;
  bool sameKind(const std::string& name, const struct stat& status, const Entry& entry) const;
  bool make(const std::string& name, const Entry& entry);
  void setByName(const std::string& name, const Entry& entry);

  AttributeKinds kinds_;
  const Rules& rules_;
  Problems& problems_;
  int directory_ = -1;
  std::string path_;
  std::optional<Owner> newOwner_;  ///< of new files in this directory, once it is known
  bool early_ = false;             ///< the file being made has its mode already
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_PLACING_H
