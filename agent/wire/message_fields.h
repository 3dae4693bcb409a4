// Names and field ids that both ends of a connection agree on.
#ifndef QX_AGENT_WIRE_MESSAGE_FIELDS_H
#define QX_AGENT_WIRE_MESSAGE_FIELDS_H

namespace agent {

// Methods of every operator of a migration, beside its stages.
inline constexpr const char* methodCreate = "create";
inline constexpr const char* methodInit = "init";
inline constexpr const char* methodFinish = "finish";

// Message field: the token of the channel end that a stage is given.
inline constexpr int fieldChannel = 9001;

// Message field of "finish": 1 when the whole migration succeeded.
inline constexpr int fieldSucceeded = 9002;

// The stage that stops a server's services.
inline constexpr const char* stageStopServices = "stopServices";

// The error code of a caller who lacks the right to a stage.
inline constexpr int accessDenied = 414;

}  // namespace agent

#endif
