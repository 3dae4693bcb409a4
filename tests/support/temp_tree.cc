#include "support/temp_tree.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

namespace test_support {
namespace fs = std::filesystem;
namespace {

[[noreturn]] void failed(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

TreeEntry dirAt(std::string path, mode_t mode) {
  return {TreeEntry::DIR, std::move(path), "", mode};
}

TreeEntry fileAt(std::string path, std::string contents, mode_t mode) {
  return {TreeEntry::FILE, std::move(path), std::move(contents), mode};
}

TreeEntry linkAt(std::string path, std::string target) {
  return {TreeEntry::SYMLINK, std::move(path), std::move(target), 0};
}

void makeEntry(const std::string& root, const TreeEntry& entry) {
  const fs::path path = fs::path(root) / fs::path(entry.path).relative_path();
  fs::create_directories(path.parent_path());
  switch (entry.kind) {
    case TreeEntry::DIR:
      fs::create_directories(path);
      break;
    case TreeEntry::FILE: {
      fs::remove(path);
      std::ofstream stream(path, std::ios::binary);
      stream << entry.text;
      stream.close();
      if (!stream) failed("writing " + path.string());
      break;
    }
    case TreeEntry::SYMLINK:
      fs::remove(path);
      fs::create_symlink(entry.text, path);
      return;
  }
  if (chmod(path.c_str(), entry.mode) != 0) failed("chmod " + path.string());
}

TempTree::TempTree(std::initializer_list<TreeEntry> entries) {
  std::string name = (fs::temp_directory_path() / "qxtest.XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) failed("mkdtemp " + name);
  root_ = name;
  for (const TreeEntry& entry : entries) add(entry);
}

TempTree::~TempTree() {
  // Directories that a test made unreadable would keep their contents, unless
  // they are opened up first; for root it makes no difference.
  std::error_code ignored;
  fs::permissions(root_, fs::perms::owner_all, fs::perm_options::add, ignored);
  for (fs::recursive_directory_iterator it(root_, ignored), end; it != end; it.increment(ignored)) {
    if (it->is_directory(ignored) && !it->is_symlink(ignored)) {
      fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
    }
  }
  fs::remove_all(root_, ignored);
}

std::string readFile(const std::string& path) {
  errno = 0;
  std::ifstream stream(path, std::ios::binary);
  if (!stream) failed("opening " + path);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

}  // namespace test_support
