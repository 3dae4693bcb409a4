// OS templates: what a new container's file tree is made of.
#ifndef QX_NODE_TEMPLATE_H
#define QX_NODE_TEMPLATE_H

#include <string>

namespace node {

struct OsTemplate {
  std::string path;
  bool archive = false;  ///< a tar archive; otherwise a directory
};

/// Finds the template NAME in the template directory: a directory NAME, or an
/// archive NAME.tar, .tar.gz, .tgz, .tar.xz, .tar.zst, .tar.bz2, in this order. A
/// leading "." of the name is dropped. Throws Error: kNotFound when there is
/// none, kBadConfig when the name holds other characters than letters, digits
/// and "._+-".
OsTemplate findTemplate(const std::string& name);

/// Unpacks or copies the template into the empty directory `tree`, with
/// numeric ids, modes, access lists and extended attributes. Throws Error.
void unpackTemplate(const OsTemplate& source, const std::string& tree);

}  // namespace node

#endif
