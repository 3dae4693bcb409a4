#include "share_tests/engine/random_tree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "share_tests/program_run.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t kLargest = 1500000;  // bytes
constexpr int kDepth = 40;            // directories, one in the other

// A list for user 1234 and the mask, as in acl(5): 2, then tag, permissions, id.
std::string accessList(unsigned user) {
  const auto word = [](unsigned tag, unsigned permissions, unsigned id) {
    std::string text;
    for (const unsigned part : {tag, permissions})
      for (int i = 0; i < 2; ++i) text += static_cast<char>(part >> (8 * i));
    for (int i = 0; i < 4; ++i) text += static_cast<char>(id >> (8 * i));
    return text;
  };
  return std::string("\2\0\0\0", 4) + word(1, 7, ~0U) + word(2, 5, user) + word(4, 5, ~0U) +
         word(16, 7, ~0U) + word(32, 0, ~0U);
}

// As setcap writes it: version 2, effective; which are permitted and inheritable.
std::string capabilities(unsigned permitted) {
  std::string text;
  for (const unsigned part : {0x02000001U, permitted, 0U, 0U, 0U})
    for (int i = 0; i < 4; ++i) text += static_cast<char>(part >> (8 * i));
  return text;
}

}  // namespace

std::string noise(size_t size) {
  std::string bytes(size, '\0');
  std::mt19937_64 random(1);
  for (char& c : bytes) c = static_cast<char>(random());
  return bytes;
}

RandomTree::RandomTree(std::string root, unsigned seed) : root_(std::move(root)), random_(seed) {}

std::string RandomTree::newName() {
  static const std::vector<std::string> odd = {"-rf",    " blank ", "new\nline", "\xff\xfe", "*",
                                               "\\#012", "[a]",     "a'b\"c",    "\x01",     "..."};
  if (chance(10)) return odd[pick(odd.size())];
  if (chance(3)) return std::string(200 + pick(56), static_cast<char>('a' + pick(26)));
  return std::string(1, static_cast<char>('a' + pick(26))) + std::to_string(pick(40));
}

std::string RandomTree::bytes(size_t count) {
  std::string text(count, '\0');
  const bool letters = chance(50);
  for (char& c : text)
    c = letters ? static_cast<char>('a' + pick(4)) : static_cast<char>(random_());
  return text;
}

size_t RandomTree::anySize() {
  if (chance(4)) return (4 << 20) + pick(3000000);
  switch (pick(6)) {
    case 0:
      return 0;
    case 1:
      return pick(kLargest);
    case 2:
      return 4096 * pick(80);
    default:
      return pick(9000);
  }
}

std::vector<std::string> RandomTree::all() const {
  std::vector<std::string> found;
  for (const auto& entry : fs::recursive_directory_iterator(root_))
    found.push_back(entry.path().string());
  std::sort(found.begin(), found.end());
  return found;
}

std::string RandomTree::anyDirectory() {
  std::vector<std::string> directories = {root_};
  for (const std::string& path : all())
    if (fs::is_directory(fs::symlink_status(path))) directories.push_back(path);
  return directories[pick(directories.size())];
}

std::string RandomTree::anyEntry() {
  const std::vector<std::string> entries = all();
  return entries.empty() ? std::string() : entries[pick(entries.size())];
}

std::string RandomTree::anyFile() {
  std::vector<std::string> files;
  for (const std::string& path : all())
    if (fs::is_regular_file(fs::symlink_status(path))) files.push_back(path);
  return files.empty() ? std::string() : files[pick(files.size())];
}

void RandomTree::makeFile(const std::string& path) {
  const Fd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644));
  const std::string text = bytes(anySize());
  if (::write(file.get(), text.data(), text.size()) < 0) return;
}

void RandomTree::makeSparse(const std::string& path) {
  const Fd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
  const size_t size = 1 + pick(5 * kLargest);
  for (size_t i = pick(4); i > 0; --i) {
    const std::string text = bytes(1 + pick(70000));
    if (::pwrite(file.get(), text.data(), text.size(), static_cast<off_t>(pick(size))) < 0) return;
  }
  if (::ftruncate(file.get(), static_cast<off_t>(size)) != 0) return;
}

void RandomTree::makeDeep(std::string path) {
  for (int i = 0; i < kDepth; ++i) {
    if (::mkdir(path.c_str(), 0750) != 0) return;
    if (chance(10)) makeFile(path + "/file");
    path += "/" + std::to_string(i);
  }
  makeFile(path);
}

void RandomTree::make() {
  const std::string path = anyDirectory() + "/" + newName();
  if (path.size() > 3000 || fs::exists(fs::symlink_status(path))) return;
  if (chance(1)) return makeDeep(path);
  switch (pick(16)) {
    case 0:
    case 1:
    case 2:
      ::mkdir(path.c_str(), 0755);
      break;
    case 3:
      if (::symlink(("target" + bytes(pick(40)) + "x").c_str(), path.c_str()) != 0) return;
      break;
    case 4:
      ::mkfifo(path.c_str(), 0600);
      break;
    case 5:
      ::mknod(path.c_str(), (chance(50) ? S_IFCHR : S_IFBLK) | 0640,
              makedev(static_cast<unsigned>(pick(300)), static_cast<unsigned>(pick(70000))));
      break;
    case 6:
      ::mknod(path.c_str(), S_IFSOCK | 0700, 0);
      break;
    case 7:
      makeSparse(path);
      break;
    case 8:
    case 9: {
      const std::string other = anyEntry();
      if (other.empty() || ::link(other.c_str(), path.c_str()) != 0) return;
      break;
    }
    default:
      makeFile(path);
  }
  if (chance(40)) decorate(path);
}

void RandomTree::decorate(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return;
  if (chance(30))
    ::lchown(path.c_str(), static_cast<uid_t>(pick(3) * 1000), static_cast<gid_t>(pick(70000)));
  if (chance(40) && !S_ISLNK(status.st_mode))
    ::chmod(path.c_str(), static_cast<mode_t>(pick(010000)));
  if (chance(20) && (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode))) {
    const std::string value = bytes(pick(300));
    ::lsetxattr(path.c_str(), chance(50) ? "user.one" : "user.two", value.data(), value.size(), 0);
  }
  if (chance(10)) ::lsetxattr(path.c_str(), "trusted.note", "t", 1, 0);
  if (chance(10) && S_ISREG(status.st_mode)) {
    const std::string value = capabilities(1U << pick(32));
    ::lsetxattr(path.c_str(), "security.capability", value.data(), value.size(), 0);
  }
  if (chance(10)) ::lremovexattr(path.c_str(), "user.one");
  if (chance(10) && !S_ISLNK(status.st_mode)) {
    const std::string list = accessList(1234 + static_cast<unsigned>(pick(3)));
    ::lsetxattr(path.c_str(), "system.posix_acl_access", list.data(), list.size(), 0);
    if (S_ISDIR(status.st_mode) && chance(50))
      ::lsetxattr(path.c_str(), "system.posix_acl_default", list.data(), list.size(), 0);
  }
  if (chance(5)) ::lremovexattr(path.c_str(), "system.posix_acl_access");
  if (chance(50)) {
    const timespec times[] = {
        {0, UTIME_OMIT},
        {static_cast<time_t>(1000000000 + pick(100000)), static_cast<long>(pick(1000000000))}};
    ::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
  }
}

void RandomTree::overwrite(const std::string& path) {
  const Fd file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) return;
  const std::string text = bytes(1 + pick(20000));
  const size_t at = pick(static_cast<size_t>(status.st_size) + 1);
  if (::pwrite(file.get(), text.data(), text.size(), static_cast<off_t>(at)) < 0) return;
}

// Of another size too, or who goes by times and sizes would not see it.
void RandomTree::overwriteWithOldTime(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return;
  {
    const Fd file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    const off_t at = hides_ && status.st_size > 3 ? status.st_size - 4 : status.st_size;
    if (::pwrite(file.get(), "more", 4, at) != 4) return;
  }
  const timespec times[] = {{0, UTIME_OMIT}, status.st_mtim};
  ::utimensat(AT_FDCWD, path.c_str(), times, 0);
}

void RandomTree::change() {
  const std::string entry = anyEntry();
  const std::string file = anyFile();
  if (entry.empty() || file.empty()) return make();
  std::error_code ignored;
  switch (pick(12)) {
    case 0:
      fs::remove_all(entry, ignored);
      return;
    case 1:
      fs::rename(entry, anyDirectory() + "/" + newName(), ignored);
      return;
    case 2:
      fs::remove_all(entry, ignored);
      if (chance(50))
        ::mkdir(entry.c_str(), 0700);
      else
        makeFile(entry);
      return;
    case 3:
      return overwrite(file);
    case 4:
      return overwriteWithOldTime(file);
    case 5:
      ::truncate(file.c_str(), static_cast<off_t>(anySize()));
      return;
    case 6:
      ::utimensat(AT_FDCWD, entry.c_str(), nullptr, AT_SYMLINK_NOFOLLOW);
      return;
    case 7: {  // a link is broken
      const std::string copy = file + ".copy";
      fs::copy_file(file, copy, ignored);
      fs::rename(copy, file, ignored);
      return;
    }
    case 8:
    case 9:
      return decorate(entry);
    default:
      return make();
  }
}

void RandomTree::grow(int count) {
  for (int i = 0; i < count; ++i) make();
}

void RandomTree::mutate(int count) {
  for (int i = 0; i < count; ++i) change();
}
