// What may come in: values that end up in shell commands and paths.
#ifndef QX_AGENT_FRAMEWORK_VALIDATION_H
#define QX_AGENT_FRAMEWORK_VALIDATION_H

#include <string>

#include "framework/migrate_params.h"

namespace agent {

/// Each returns an empty text, or one that names the refused value and says why.
std::string checkContainerId(long long ctid);
/// Absolute; of the shell's special characters only * ? [ and ].
std::string checkExclusion(const std::string& pattern);
/// Absolute, not "/", no special characters, no ".." component; "$VEID" may stand
/// for the id.
std::string checkRoot(const char* name, const std::string& path);
/// A plain file name.
std::string checkDistribution(const std::string& name);
std::string checkService(const std::string& name);
/// ADDRESS or ADDRESS/PREFIX, IPv4 or IPv6, of one host; or "dhcp" or "auto".
std::string checkAddress(const std::string& text);
std::string checkNameserver(const std::string& text);
/// A value in single quotes, harmless to show (host/visible.h) and cut when it is long.
std::string quotedText(const std::string& value);
std::string checkRecord(const QXA::QXAMigrateP2VSerializerParams& record);

}  // namespace agent

#endif
