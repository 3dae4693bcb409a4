#include "e2e/difference.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <iterator>
#include <set>

namespace treediff {

namespace {

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
    case S_IFSOCK:
      return "socket";
    default:
      return "something unknown";
  }
}

std::string octal(mode_t mode) {
  char text[16];
  snprintf(text, sizeof text, "%04o", mode & 07777U);
  return text;
}

std::string owner(const struct stat& info) {
  return std::to_string(info.st_uid) + ":" + std::to_string(info.st_gid);
}

std::string time(const struct stat& info) {
  char text[64];
  snprintf(text, sizeof text, "%lld.%09ld", static_cast<long long>(info.st_mtim.tv_sec),
           info.st_mtim.tv_nsec);
  return text;
}

std::string device(const struct stat& info) {
  return std::to_string(major(info.st_rdev)) + ":" + std::to_string(minor(info.st_rdev));
}

std::string names(const std::map<std::string, std::string>& xattrs) {
  std::string text;
  for (const auto& [name, value] : xattrs) {
    text += (text.empty() ? "" : " ") + name + "[" + std::to_string(value.size()) + "]";
  }
  return text.empty() ? "none" : text;
}

// A copy may be sparser than its source. It has lost holes when it takes clearly
// more of the disk; file systems differ by some blocks for the same content.
bool lostHoles(const struct stat& source, const struct stat& copy) {
  constexpr long long slack = 64 * 1024;
  const long long sourceBytes = source.st_blocks * 512LL;
  const long long copyBytes = copy.st_blocks * 512LL;
  return sourceBytes < source.st_size && copyBytes > sourceBytes + slack;
}

}  // namespace

std::string printable(const std::string& bytes) {
  std::string text;
  for (const char byte : bytes) {
    const auto code = static_cast<unsigned char>(byte);
    if (code >= 0x20 && code < 0x7f && byte != '\\') {
      text += byte;
    } else {
      char escaped[8];
      snprintf(escaped, sizeof escaped, "\\x%02x", code);
      text += escaped;
    }
  }
  return text;
}

size_t Report::unexpected() const {
  return static_cast<size_t>(std::count_if(differences.begin(), differences.end(),
                                           [](const Difference& item) { return !item.expected; }));
}

Report Comparison::run() {
  visit("/");
  return report_;
}

void Comparison::differ(const std::string& path, const std::string& aspect,
                        const std::string& text) {
  report_.differences.push_back({path, aspect, text, expectations_.allow(path, aspect) != nullptr});
}

void Comparison::visit(const std::string& path) {
  Entry source;
  Entry copy;
  if (expectations_.excludes(path)) {
    if (readEntry(copy_ + path, copy)) differ(path, "added", "excluded, but in the copy");
    return;
  }
  const bool inSource = readEntry(source_ + path, source);
  const bool inCopy = readEntry(copy_ + path, copy);
  if (inSource && inCopy) {
    visitBoth(path, source, copy);
  } else if (inSource) {
    differ(path, "missing", std::string(typeName(source.info.st_mode)) + " in the source only");
  } else if (inCopy) {
    differ(path, "added", std::string(typeName(copy.info.st_mode)) + " in the copy only");
  }
}

void Comparison::visitBoth(const std::string& path, const Entry& source, const Entry& copy) {
  ++report_.entries;
  const auto pair = [](const std::string& left, const std::string& right) {
    return "source " + left + ", copy " + right;
  };
  const mode_t sourceType = source.info.st_mode & S_IFMT;
  const mode_t copyType = copy.info.st_mode & S_IFMT;
  if (sourceType != copyType) {
    differ(path, "type", pair(typeName(sourceType), typeName(copyType)));
    return;
  }
  if (source.info.st_mode != copy.info.st_mode) {
    differ(path, "mode", pair(octal(source.info.st_mode), octal(copy.info.st_mode)));
  }
  if (owner(source.info) != owner(copy.info)) {
    differ(path, "owner", pair(owner(source.info), owner(copy.info)));
  }
  if (time(source.info) != time(copy.info)) {
    differ(path, "time", pair(time(source.info), time(copy.info)));
  }
  if (source.xattrs != copy.xattrs) {
    differ(path, "xattrs", pair(names(source.xattrs), names(copy.xattrs)));
  }
  if (sourceType == S_IFLNK && source.target != copy.target) {
    differ(path, "target", pair(printable(source.target), printable(copy.target)));
  }
  if ((sourceType == S_IFCHR || sourceType == S_IFBLK) &&
      source.info.st_rdev != copy.info.st_rdev) {
    differ(path, "device", pair(device(source.info), device(copy.info)));
  }
  if (sourceType == S_IFDIR) {
    visitNames(path, true, true);
    return;
  }
  compareLinks(path, source, copy);
  if (sourceType == S_IFREG) compareFiles(path, source, copy);
}

void Comparison::visitNames(const std::string& path, bool inSource, bool inCopy) {
  std::set<std::string> all;
  const auto collect = [&](const std::string& root) {
    std::vector<std::string> found = listDirectory(root + path);
    all.insert(std::make_move_iterator(found.begin()), std::make_move_iterator(found.end()));
  };
  if (inSource) collect(source_);
  if (inCopy) collect(copy_);
  for (const std::string& name : all) visit(path == "/" ? path + name : path + "/" + name);
}

void Comparison::compareFiles(const std::string& path, const Entry& source, const Entry& copy) {
  ++report_.files;
  report_.bytes += static_cast<unsigned long long>(source.info.st_size);
  if (source.info.st_size != copy.info.st_size) {
    differ(path, "size",
           "source " + std::to_string(source.info.st_size) + ", copy " +
               std::to_string(copy.info.st_size));
  } else if (!sameContent(source_ + path, copy_ + path)) {
    differ(path, "content", "the bytes differ");
  }
  if (lostHoles(source.info, copy.info)) {
    differ(path, "holes",
           "source takes " + std::to_string(source.info.st_blocks) + " blocks, copy " +
               std::to_string(copy.info.st_blocks));
  }
}

void Comparison::compareLinks(const std::string& path, const Entry& source, const Entry& copy) {
  const auto firstName = [&](LinkGroups& groups, const struct stat& info) {
    if (info.st_nlink < 2) return path;
    return groups.emplace(std::make_pair(info.st_dev, info.st_ino), path).first->second;
  };
  const std::string inSource = firstName(sourceLinks_, source.info);
  const std::string inCopy = firstName(copyLinks_, copy.info);
  if (inSource != inCopy) {
    const auto tell = [&](const std::string& name) {
      return name == path ? "a file of its own" : "another name of " + printable(name);
    };
    differ(path, "links", "source: " + tell(inSource) + ", copy: " + tell(inCopy));
  }
}

}  // namespace treediff
