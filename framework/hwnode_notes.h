// What a calculation of a container's configuration has to say beside the figures.
#ifndef QX_FRAMEWORK_HWNODE_NOTES_H
#define QX_FRAMEWORK_HWNODE_NOTES_H

#include <list>
#include <string>

#include "framework/api.h"

namespace QXL {

/// The notes of any kind of calculation.
struct QXL_API QXLCalculateHWNodeNotes {
  QXLCalculateHWNodeNotes() = default;
  QXLCalculateHWNodeNotes(const QXLCalculateHWNodeNotes&) = default;
  QXLCalculateHWNodeNotes& operator=(const QXLCalculateHWNodeNotes&) = default;
  virtual ~QXLCalculateHWNodeNotes() = default;
};

}  // namespace QXL

namespace QXA {

/// A finding that does not stop a calculation.
struct QXACalculateHWNodeWarning {
  int code = 0;
  std::string message;
};

/// A path that is not to be copied into the container, or a pattern of such paths.
struct QXAExcludePath {
  std::string path;
  bool excluded = false;  ///< left out by decision; false for what has no contents to copy
};

/// The notes on a physical server.
struct QXL_API QXACalculateHWNodeNotes : QXL::QXLCalculateHWNodeNotes {
  std::list<QXACalculateHWNodeWarning> warnings;
  std::list<QXAExcludePath> excludes;
};

}  // namespace QXA

#endif
