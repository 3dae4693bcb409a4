// A directory tree of all kinds of entries that chance makes and changes, the same
// for the same seed.
#ifndef QX_TESTS_SHARE_ENGINE_RANDOM_TREE_H
#define QX_TESTS_SHARE_ENGINE_RANDOM_TREE_H

#include <random>
#include <string>
#include <vector>

// Bytes that nothing makes smaller, the same every time.
std::string noise(size_t size);

class RandomTree {
 public:
  RandomTree(std::string root, unsigned seed);

  /// Also changes that show in no size and no modification time.
  void hideSomeChanges() { hides_ = true; }
  /// Makes so many entries.
  void grow(int count);
  /// So many changes: entries made, deleted, renamed, replaced by another kind,
  /// written to, cut, given other owners, modes, times and attributes, linked.
  void mutate(int count);

 private:
  size_t pick(size_t below) { return random_() % below; }
  bool chance(int percent) { return static_cast<int>(pick(100)) < percent; }
  std::string newName();
  std::string bytes(size_t count);
  size_t anySize();
  std::vector<std::string> all() const;
  std::string anyDirectory();
  std::string anyEntry();
  std::string anyFile();
  void make();
  void makeFile(const std::string& path);
  void makeSparse(const std::string& path);
  void makeDeep(std::string path);
  void decorate(const std::string& path);
  void change();
  void overwrite(const std::string& file);
  void overwriteWithOldTime(const std::string& file);

  std::string root_;
  std::mt19937 random_;
  bool hides_ = false;
};

#endif  // QX_TESTS_SHARE_ENGINE_RANDOM_TREE_H
