// What the whole plug-in agrees on: names, numbers of fields, rights and errors.
#ifndef QX_FRAME_PLUGIN_H
#define QX_FRAME_PLUGIN_H

#include <string>

namespace P2V {

/// The name the plug-in gives itself in the agent's log.
constexpr char kPluginName[] = "qxlinmigrate";

/// The names of the two operators, as the agents of both machines know them.
constexpr char kSerializeOperatorName[] = "qxlinmigrate_p2v_serializer";
constexpr char kDeserializeOperatorName[] = "qxlinmigrate_p2v_deserializer";

/// The name under which the plug-in registers its factories and asks for them:
/// the unnamed, default implementation of every role.
const std::string kImplementation;

/// Fields of requests and answers.
constexpr int kQuotaField = 1811;  ///< the quota dump; string in base64
constexpr int kBytesField = 1017;  ///< a count of bytes; signed 64-bit

/// The right a caller needs for any stage, and the error of one who lacks it.
constexpr int kMigrateRight = 72;
constexpr int kAccessDenied = 414;

/// The error of a stage request without a field that the stage needs.
constexpr int kBadRequest = 400;

}  // namespace P2V

#endif
