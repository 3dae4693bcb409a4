// What went wrong on the way to a server, for people.
#ifndef QX_AGENT_TRANSPORT_SSH_PROBLEM_H
#define QX_AGENT_TRANSPORT_SSH_PROBLEM_H

#include <string>

namespace agent {

/// Turns what ssh and the server's shell printed on standard error into one
/// message with a hint. target: "user@host"; status: ssh's wait status.
std::string explainSshFailure(const std::string& target, const std::string& errorOutput,
                              int status);

/// The same for a line "QX error WORD DETAIL" of the program that receives the
/// bundle on the server.
std::string explainBootstrapFailure(const std::string& target, const std::string& word,
                                    const std::string& detail);

}  // namespace agent

#endif
