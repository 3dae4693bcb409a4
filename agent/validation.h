// What may come in: values that end up in shell commands and paths.
#ifndef QX_AGENT_VALIDATION_H
#define QX_AGENT_VALIDATION_H

#include <string>

#include "framework/migrate_params.h"

namespace agent {

// The largest container id: ids are printed as signed numbers here and there.
inline constexpr long long maxContainerId = 2147483647;

// Each returns an empty text, or one that names the refused value and says why.
std::string checkContainerId(long long ctid);
// Absolute; of the shell's special characters only * ? [ and ].
std::string checkExclusion(const std::string& pattern);
// Absolute, not "/", no special characters, no ".." component; "$VEID" may stand
// for the id.
std::string checkRoot(const char* name, const std::string& path);
// A plain file name.
std::string checkService(const std::string& name);
std::string checkRecord(const QXA::QXAMigrateP2VSerializerParams& record);

}  // namespace agent

#endif
