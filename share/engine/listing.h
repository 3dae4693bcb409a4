#ifndef QX_SHARE_ENGINE_LISTING_H
#define QX_SHARE_ENGINE_LISTING_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace engine {

/// The names in one directory, "." and ".." left out, in little memory.
class Listing {
 public:
  struct Item {
    std::uint64_t inode;
    std::uint32_t at;     ///< of the name
    std::uint8_t length;  ///< of the name
    std::uint8_t type;    ///< DT_..., as the directory has it; may be DT_UNKNOWN
  };

  /// Reads an open directory from its start. False and errno when that fails;
  /// then what was read before it is here.
  bool read(int directory);

  /// Into the order in which a disk is likely to hold the inodes.
  void sortByInode();

  const std::vector<Item>& items() const { return items_; }
  std::string_view name(const Item& item) const { return {names_.data() + item.at, item.length}; }

 private:
  std::vector<Item> items_;
  std::string names_;
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_LISTING_H
