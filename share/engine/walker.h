#ifndef QX_SHARE_ENGINE_WALKER_H
#define QX_SHARE_ENGINE_WALKER_H

#include <sys/stat.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "share/engine/attributes.h"
#include "share/engine/beneath.h"
#include "share/engine/contents.h"
#include "share/engine/hard_links.h"
#include "share/engine/hello.h"
#include "share/engine/listing.h"
#include "share/engine/manifest.h"
#include "share/engine/problems.h"
#include "share/engine/record_stream.h"
#include "share/engine/rules.h"
#include "share/engine/visits.h"
#include "share/engine/work_queue.h"

namespace engine {

/// The directories of which not everything could be read, for the next walk to go to.
/// Any thread may use it.
class Incomplete {
 public:
  void add(const std::string& directory);
  /// Those so far; from then on there are none.
  std::set<std::string> take();

 private:
  std::mutex mutex_;
  std::set<std::string> directories_;
};

/// What all lanes of a sender share.
struct Walk {
  Walk(const Tree& ofTree, const Rules& ofRules, AttributeKinds ofKinds, Way ofWay,
       WorkQueue& toQueue, HardLinks& toLinks, Problems& toProblems)
      : tree(ofTree),
        rules(ofRules),
        kinds(ofKinds),
        way(ofWay),
        queue(toQueue),
        links(toLinks),
        problems(toProblems) {}

  const Tree& tree;
  const Rules& rules;
  AttributeKinds kinds;
  Way way;
  WorkQueue& queue;
  HardLinks& links;
  Problems& problems;
  const Manifest* before = nullptr;  ///< for Way::kDifferences
  ManifestWriter* after = nullptr;   ///< not there if none is kept
  Visits* visits = nullptr;          ///< not there if every directory is visited
  Incomplete incomplete;
  std::atomic<std::uint64_t> directories{0};  ///< that were gone through
  std::atomic<bool> unlisted{false};          ///< a directory's names could not all be read
  std::atomic<bool> distrusted{false};        ///< what is kept may not be what is there
  std::atomic<std::uint64_t> bytesKnown{0};   ///< of the files that were met
  std::atomic<std::uint64_t> bytesDone{0};    ///< of these, what was read or passed over
};

/// One lane of the sender: turns directories into records. One thread uses it.
class Walker {
 public:
  Walker(Walk& walk, RecordStream& stream);

  /// Does one job. What it finds below is added to the queue. Throws Failure.
  void run(const Job& job);

 private:
  void runWhole(int directory, const std::string& path);
  void runChanged(int directory, const Job& job);
  void runWanted(int directory, const Job& job);
  void addAll(int directory, bool comparing);
  void addEntry(int directory, const std::string& name, unsigned type, ino_t inode, bool comparing);
  void addChanged(int directory, const std::string& name);
  bool mayHaveAliases(int directory, const Job& job) const;
  void addSubdirectory(int directory, const std::string& name);
  void addFile(int directory, const std::string& name);
  void sendFile(int file, const struct stat& status, const std::string& name,
                const std::optional<Known>& before);
  void addOther(int directory, const std::string& name);
  void listFile(int directory, const std::string& name);
  void removeGone();
  void remove(const std::string& name, const Known& before);
  void passOverSeen();
  void noteLost(const std::string& name, const Known& before);
  void noteReplaced(const std::string& name, unsigned type, ino_t inode);
  void noteVanished(const std::string& name);
  void noteReplacedMeanwhile(const std::string& name);
  void keep(const std::string& name, const std::optional<Known>& before);
  void fail(const std::string& name, const std::string& what);
  bool isUnchanged(const std::optional<Known>& before, const struct stat& status) const;
  bool isFurtherName(const struct stat& status, const std::string& name,
                     const std::optional<Known>& before);
  bool passOver(const struct stat& status, const std::string& name,
                const std::optional<Known>& before);
  std::optional<Known> knownBefore(const std::string& name);
  void remember(const std::string& name, const Known& known);
  void putName(Record record, const std::string& name);
  void begin();
  void endDirectory(int directory);
  bool readLink(int directory, const std::string& name, Entry& entry);
  void takeAttributes(const AttributePlace& place, const std::string& path, Entry& entry);
  std::string pathOf(const std::string& name) const { return joinPath(path_, name); }

  Walk& walk_;
  RecordStream& stream_;
  ContentsSender contents_;
  Listing listing_;
  std::string target_;

  std::string path_;    ///< of the directory that is worked at
  unsigned flags_ = 0;  ///< it is begun with
  bool begun_ = false;  ///< something of it was sent
  bool remembers_ = false;
  bool goesEverywhere_ = true;  ///< also into subdirectories that are as they were
  std::set<std::string> seen_;  ///< entries that were looked at before
  std::optional<Manifest::Directory> before_;
  ManifestPart part_;
};

/// What stat says of an entry.
Entry entryOf(const std::string& name, const struct stat& status);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_WALKER_H
