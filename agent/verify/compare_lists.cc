#include "agent/verify/compare_lists.h"

#include <sys/stat.h>

#include <stdexcept>
#include <utility>

#include "host/text.h"

namespace agent {

namespace {

using host::textf;

constexpr mode_t kPermissions = 07777;
// Of files with several names, that a list may have.
constexpr size_t kMostLinked = 20000000;

const char* typeName(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFREG:
      return "file";
    case S_IFDIR:
      return "directory";
    case S_IFLNK:
      return "symbolic link";
    case S_IFCHR:
      return "character device";
    case S_IFBLK:
      return "block device";
    case S_IFIFO:
      return "fifo";
    default:
      return "socket";
  }
}

std::string timeText(const TreeEntry& entry) {
  return textf("%lld.%09u", static_cast<long long>(entry.seconds), entry.nanoseconds);
}

std::string attributesText(const engine::Attributes& attributes) {
  std::string text;
  for (const engine::Attribute& attribute : attributes) {
    text += (text.empty() ? "" : " ") + attribute.name;
  }
  return text.empty() ? "none" : text;
}

class Comparer {
 public:
  explicit Comparer(Explanations explanations) : explanations_(std::move(explanations)) {}

  TreeComparison run(ListReader& serverList, ListReader& containerList) {
    std::optional<TreeEntry> server = serverList.next();
    std::optional<TreeEntry> container = containerList.next();
    while (server || container) {
      if (!container || (server && comesBefore(server->path, container->path))) {
        meet(&*server, nullptr);
        server = serverList.next();
      } else if (!server || comesBefore(container->path, server->path)) {
        meet(nullptr, &*container);
        container = containerList.next();
      } else {
        meet(&*server, &*container);
        server = serverList.next();
        container = containerList.next();
      }
    }
    return std::move(result_);
  }

 private:
  void meet(const TreeEntry* server, const TreeEntry* container) {
    server_ = server;
    container_ = container;
    explanations_.meet(server, container);
    if (!server) return differ("added", textf("a %s", typeName(container->mode)));
    if (!container) return differ("missing", textf("a %s", typeName(server->mode)));
    ++result_.entries;
    compare(*server, *container);
  }

  void compare(const TreeEntry& server, const TreeEntry& container) {
    if ((server.mode & S_IFMT) != (container.mode & S_IFMT)) {
      return differ("type", textf("%s, not %s", typeName(container.mode), typeName(server.mode)));
    }
    for (const auto* entry : {&server, &container}) {
      if (entry->problem.empty()) continue;
      differ("unreadable",
             (entry == &server ? "on the server: " : "in the container: ") + entry->problem);
    }
    // The mode of a link means nothing.
    if (!S_ISLNK(server.mode) && (server.mode ^ container.mode) & kPermissions) {
      differ("mode",
             textf("%04o, not %04o", container.mode & kPermissions, server.mode & kPermissions));
    }
    if (server.uid != container.uid || server.gid != container.gid) {
      differ("owner",
             textf("%u:%u, not %u:%u", container.uid, container.gid, server.uid, server.gid));
    }
    if (server.seconds != container.seconds || server.nanoseconds != container.nanoseconds) {
      differ("time", timeText(container) + ", not " + timeText(server));
    }
    if (server.attributes != container.attributes) {
      differ("attributes", attributesText(container.attributes) + ", not " +
                               attributesText(server.attributes) + ", or other values");
    }
    if (server.target != container.target) {
      differ("target", container.target + ", not " + server.target);
    }
    if (server.major != container.major || server.minor != container.minor) {
      differ("device", textf("%u:%u, not %u:%u", container.major, container.minor, server.major,
                             server.minor));
    }
    if (S_ISREG(server.mode)) compareFiles(server, container);
    compareNames(server, container);
  }

  void compareFiles(const TreeEntry& server, const TreeEntry& container) {
    ++result_.files;
    result_.bytes += container.size;
    if (server.size != container.size) {
      differ("size", textf("%llu, not %llu", static_cast<unsigned long long>(container.size),
                           static_cast<unsigned long long>(server.size)));
    }
    if (server.content && container.content && !(*server.content == *container.content)) {
      differ("content", "other bytes");
    }
    // File systems cut their pieces differently: a block here or there says nothing.
    constexpr std::uint64_t kSlack = 1 << 20;
    const bool sparse = server.occupied + kSlack < server.size;
    if (sparse && container.occupied > server.occupied + kSlack &&
        container.occupied + kSlack > container.size) {
      differ("holes", textf("takes %llu bytes, not %llu",
                            static_cast<unsigned long long>(container.occupied),
                            static_cast<unsigned long long>(server.occupied)));
    }
  }

  // Names of one file there are names of one file here. A name that is alone may have
  // others that are not copied.
  void compareNames(const TreeEntry& server, const TreeEntry& container) {
    if (!server.file && !container.file) return;
    if (containerFiles_.size() > kMostLinked) {
      throw std::runtime_error("there are too many files with several names to compare");
    }
    const auto [here, isNew] =
        server.file ? containerFiles_.try_emplace(server.file, Named{container.file, server.path})
                    : std::pair(containerFiles_.end(), false);
    if (server.file && !isNew && (here->second.file != container.file || !container.file)) {
      return differ("links", "not the same file as /" + here->second.path);
    }
    const auto [there, isFirst] =
        container.file ? serverFiles_.try_emplace(container.file, Named{server.file, server.path})
                       : std::pair(serverFiles_.end(), false);
    if (container.file && !isFirst && (there->second.file != server.file || !server.file)) {
      differ("links", "the same file as /" + there->second.path);
    }
  }

  void differ(const std::string& aspect, const std::string& text) {
    const std::string& path = server_ ? server_->path : container_->path;
    std::string reason = explanations_.reasonFor(path, aspect, server_, container_);
    if (reason.empty()) {
      ++result_.unexpected;
    } else {
      ++result_.reasons[reason];
    }
    if (result_.differences.size() >= kMostDifferences) {
      ++result_.untold;
    } else {
      result_.differences.push_back({"/" + path, aspect, text, std::move(reason)});
    }
  }

  struct Named {
    std::uint64_t file;
    std::string path;
  };

  Explanations explanations_;
  TreeComparison result_;
  const TreeEntry* server_ = nullptr;
  const TreeEntry* container_ = nullptr;
  // By the file's number on one side: its number on the other, and its first name.
  std::map<std::uint64_t, Named> containerFiles_, serverFiles_;
};

}  // namespace

TreeComparison compareLists(ListReader& server, ListReader& container, Explanations explanations) {
  return Comparer(std::move(explanations)).run(server, container);
}

}  // namespace agent
