// Names and field ids that both ends of a connection agree on.
#ifndef QX_AGENT_WIRE_MESSAGE_FIELDS_H
#define QX_AGENT_WIRE_MESSAGE_FIELDS_H

namespace agent {

/// Methods of every operator of a migration, beside its stages.
inline constexpr const char* kMethodCreate = "create";
inline constexpr const char* kMethodInit = "init";
inline constexpr const char* kMethodFinish = "finish";

/// Message field: the token of the channel end that a stage is given.
inline constexpr int kFieldChannel = 9001;

/// Message field of "finish": 1 when the whole migration succeeded.
inline constexpr int kFieldSucceeded = 9002;

/// The error code of a caller who lacks the right to a stage.
inline constexpr int kAccessDenied = 414;

}  // namespace agent

#endif
