#ifndef QX_SHARE_ENGINE_WALKER_H
#define QX_SHARE_ENGINE_WALKER_H

#include <sys/stat.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "share/engine/attributes.h"
#include "share/engine/beneath.h"
#include "share/engine/contents.h"
#include "share/engine/hard_links.h"
#include "share/engine/hello.h"
#include "share/engine/listing.h"
#include "share/engine/problems.h"
#include "share/engine/record_stream.h"
#include "share/engine/rules.h"
#include "share/engine/work_queue.h"

namespace engine {

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
  std::atomic<std::uint64_t> bytesKnown{0};  // of the files that were met
  std::atomic<std::uint64_t> bytesDone{0};   // of these, what was read or passed over
};

/// One lane of the sender: turns directories into records. One thread uses it.
class Walker {
 public:
  Walker(Walk& walk, RecordStream& stream);

  /// Does one job. What it finds below is added to the queue. Throws Failure.
  void run(const Job& job);

 private:
  void runWhole(int directory, const std::string& path);
  void runSome(int directory, const Job& job);
  void addItem(int directory, const std::string& path, const std::string& name, unsigned type);
  void addSubdirectory(const std::string& path, const std::string& name);
  void addFile(int directory, const std::string& path, const std::string& name);
  void addOther(int directory, const std::string& path, const std::string& name);
  void listItem(int directory, const std::string& path, const std::string& name, unsigned type);
  bool isFurtherName(const struct stat& status, const std::string& path, const std::string& name);
  void putName(Record record, const std::string& name);
  void beginDirectory(const std::string& path, unsigned flags);
  void endDirectory(int directory, const std::string& path);
  bool readLink(int directory, const std::string& path, const std::string& name, Entry& entry);
  void takeAttributes(const AttributePlace& place, const std::string& path, Entry& entry);

  Walk& walk_;
  RecordStream& stream_;
  ContentsSender contents_;
  Listing listing_;
  std::string target_;
};

/// What stat says of an entry.
Entry entryOf(const std::string& name, const struct stat& status);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_WALKER_H
