// How the agent gets onto a server: the shell program that receives it.
#ifndef QX_AGENT_TRANSPORT_BOOTSTRAP_H
#define QX_AGENT_TRANSPORT_BOOTSTRAP_H

#include <cstdint>
#include <string>

namespace agent {

/// Where the agent is unpacked on the server, always.
inline constexpr const char* kBootstrapDir = "/var/qxagent.tmp";

/// The bundle's programs bring their own loader and libraries, so that they run
/// with any C library and no child of theirs sees these.
inline constexpr const char* kBundleLoader = "/var/qxagent.tmp/lib/ld-linux-x86-64.so.2";
inline constexpr const char* kBundleLibraries = "/var/qxagent.tmp/lib";
inline constexpr const char* kBundleAgent = "/var/qxagent.tmp/bin/qxagent";
/// Below the directory: starts services again, and does the work of the shell program's
/// end when that has been killed (share/guard.sh).
inline constexpr const char* kBundleGuard = "bin/guard.sh";

/// The remote command for ssh: a program for /bin/sh, as root directly or by sudo,
/// that any login shell passes on unharmed (one line, single quotes only outside).
/// It talks on standard output: "QX error WORD DETAIL" when the machine will not
/// do, "QX send" when it expects `bytes` bytes of bundle on standard input, "QX
/// run" when the agent takes over both streams. When the agent has ended, by
/// whatever, it starts the services that the agent had stopped and not answered
/// for, and removes the directory. So it does first with what a run before it has
/// left, of this boot.
std::string bootstrapCommand(uint64_t bytes, const std::string& sha256);

/// A line of that program, or of what a login prints before it.
struct BootstrapLine {
  enum class Kind { kNoise, kSend, kRun, kError };
  Kind kind = Kind::kNoise;
  std::string word, detail;  ///< of an error
};
BootstrapLine readBootstrapLine(const std::string& line);

/// The remote command that gives its standard streams to the agent as a data
/// channel. Its bytes come after a line of this text: login scripts may print.
inline constexpr const char* kChannelBegins = "QX channel";
std::string channelCommand(const std::string& token);

}  // namespace agent

#endif
