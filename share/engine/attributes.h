#ifndef QX_SHARE_ENGINE_ATTRIBUTES_H
#define QX_SHARE_ENGINE_ATTRIBUTES_H

#include <string>

#include "share/engine/records.h"

namespace engine {

/// Where extended attributes are: of an open file or directory, or of an entry of
/// an open directory that is not followed if it is a symbolic link.
class AttributePlace {
 public:
  explicit AttributePlace(int fd) : fd_(fd) {}
  AttributePlace(int directory, std::string_view name);

  ssize_t list(char* buffer, size_t size) const;
  ssize_t get(const char* name, char* buffer, size_t size) const;
  bool set(const char* name, const std::string& value) const;
  bool remove(const char* name) const;

 private:
  int fd_ = -1;
  std::string path_;  ///< through /proc, as there is no call relative to a directory
};

/// Which kinds are carried over at all.
struct AttributeKinds {
  bool accessLists = false;
  bool others = false;
  bool any() const { return accessLists || others; }
};

/// Reads those of a kind that is carried over, sorted by name. A file system
/// without any has none. On a problem, false and a text that says which.
bool readAttributes(const AttributePlace& place, AttributeKinds kinds, Attributes& found,
                    std::string& problem);

/// Makes those of a kind that is carried over exactly these, writing only what
/// differs. present: there may be some already. On a problem, false and a text;
/// the rest is written nevertheless.
bool writeAttributes(const AttributePlace& place, AttributeKinds kinds, const Attributes& wanted,
                     bool present, std::string& problem);

}  // namespace engine

#endif  // QX_SHARE_ENGINE_ATTRIBUTES_H
