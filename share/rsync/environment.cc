#include "share/rsync/environment.h"

#include <cstdlib>
#include <string>

#include "share/rsync/failure.h"

namespace qxrsync {

bool environmentSays(const char* variable, const char* yes, const char* no) {
  const char* set = std::getenv(variable);
  const std::string value = set == nullptr ? "" : set;
  if (value.empty() || value == yes) return true;
  if (value == no) return false;
  throw Failure(kExitSyntax,
                "'" + value + "' in " + variable + " is neither '" + yes + "' nor '" + no + "'");
}

}  // namespace qxrsync
