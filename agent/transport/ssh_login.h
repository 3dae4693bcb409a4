// The first process of the ssh client: it logs in, brings the agent over, and then carries
// what the agent reads and writes.
#ifndef QX_AGENT_TRANSPORT_SSH_LOGIN_H
#define QX_AGENT_TRANSPORT_SSH_LOGIN_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "agent/system/cancel.h"
#include "agent/system/child.h"
#include "agent/transport/bundle.h"
#include "host/fd.h"

namespace agent {

/// What login scripts of a server may print before a program of ours talks.
inline constexpr int kMaxNoiseLines = 1000;
inline constexpr size_t kMaxNoiseLine = 4096;

/// Owns that process, which is killed when this goes, and the pipes to it. Another thread
/// may read `errors` once they were given away.
class SshLogin {
 public:
  using Tell = std::function<void(const std::string&)>;

  /// `patience`: how long it may take until the agent runs, typing a password and sending
  /// the agent included.
  explicit SshLogin(std::chrono::seconds patience = std::chrono::minutes(30))
      : patience_(patience) {}

  /// Starts the client. Throws std::runtime_error.
  void start(const std::vector<std::string>& command);

  /// Talks with the program of bootstrapCommand until the agent runs. Throws
  /// std::runtime_error with a text for people that names `target`, also when that takes
  /// too long. cancel may be null.
  void bringOver(const Bundle& bundle, const std::string& target, const Tell& tell,
                 const CancelToken* cancel);

  /// Nothing comes from the server any more: it is waited for 5 seconds, not 60.
  void abandon() { leaveTimeout_ = std::chrono::seconds(5); }
  /// The end of its input tells the agent to go; the program that started it cleans up
  /// and ends, and with it the connection. That is waited for.
  void leave();

  /// The agent's streams.
  host::Fd takeInput() { return std::move(output_); }
  host::Fd takeOutput() { return std::move(input_); }
  /// What the client and the agent write to standard error, and where further clients
  /// of the connection write theirs.
  int errors() const { return errors_.get(); }
  int errorsWrite() const { return errorsWrite_.get(); }
  /// Somebody else reads `errors` from now on.
  void giveErrorsAway() { errorsAreOurs_ = false; }

 private:
  std::string readLine(const CancelToken* cancel);
  void sendBundle(const Bundle& bundle, const CancelToken* cancel);
  void checkTime() const;
  [[noreturn]] void giveUp(const CancelToken* cancel);
  void drainErrors();

  host::Fd input_;   ///< to the server
  host::Fd output_;  ///< from the server
  host::Fd errors_, errorsWrite_;
  bool errorsAreOurs_ = true;
  std::string errorText_;
  std::string target_;
  const std::chrono::seconds patience_;
  std::chrono::steady_clock::time_point giveUpAt_;
  std::chrono::seconds leaveTimeout_{60};
  Child child_;
};

}  // namespace agent

#endif
