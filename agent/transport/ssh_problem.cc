#include "agent/transport/ssh_problem.h"

#include <sys/wait.h>

namespace agent {

namespace {

struct Known {
  const char* sign;     // part of the error output
  const char* message;  // %1 is the target
};

// The first sign found decides. Texts of OpenSSH 6 to 10, sudo and su.
constexpr Known kKnownProblems[] = {
    {"REMOTE HOST IDENTIFICATION HAS CHANGED",
     "the host key of %1 has changed: either the server was installed anew or somebody is in "
     "between. Find out which; if the change is right, remove the old key with ssh-keygen -R"},
    {"Host key verification failed",
     "the host key of %1 is not known: connect once with ssh, compare the fingerprint and accept "
     "it, or add the key to your known_hosts"},
    {"Could not resolve hostname",
     "the host of %1 is not known: check the name, or add it to /etc/hosts or DNS"},
    {"Connection refused", "%1 refuses the connection: is sshd running there, on that port?"},
    {"during banner exchange",
     "%1 takes the connection, but does not answer: it hangs, or something else than sshd listens "
     "there"},
    {" not responding.", "%1 does not answer any more: it hangs, or the network is cut"},
    {"Connection timed out", "%1 does not answer: check the address, the network and firewalls"},
    {"Operation timed out", "%1 does not answer: check the address, the network and firewalls"},
    {"No route to host", "there is no route to %1: check the address and the network"},
    {"Network is unreachable", "the network of %1 cannot be reached from here"},
    {"Too many authentication failures",
     "%1 refused after too many keys were tried: choose one with --ssh-option "
     "IdentitiesOnly=yes and your ssh configuration"},
    {"Permission denied (",
     "%1 refused the login: check the user name, and the key, agent or password that ssh uses "
     "for it"},
    {"sudo: a password is required",
     "no root rights on %1: the account must be root, or may run commands by sudo without a "
     "password (sudo -n)"},
    {"is not in the sudoers file",
     "no root rights on %1: the account must be root, or may run commands by sudo without a "
     "password (sudo -n)"},
    {"may not run sudo",
     "no root rights on %1: the account must be root, or may run commands by sudo without a "
     "password (sudo -n)"},
    {"a terminal is required",
     "no root rights on %1: sudo there asks for a terminal; the account must be root, or may run "
     "commands by sudo without a password (sudo -n)"},
    {"sudo: not found", "no root rights on %1: the account is not root, and there is no sudo"},
    {"sudo: command not found",
     "no root rights on %1: the account is not root, and there is no sudo"},
    {"This account is currently not available", "the account of %1 may not log in"},
};

std::string fill(const std::string& message, const std::string& target) {
  std::string text = message;
  const size_t place = text.find("%1");
  if (place != std::string::npos) text.replace(place, 2, target);
  return text;
}

std::string trimmed(const std::string& text) {
  const size_t end = text.find_last_not_of(" \t\r\n");
  return end == std::string::npos ? "" : text.substr(0, end + 1);
}

}  // namespace

std::string explainSshFailure(const std::string& target, const std::string& errorOutput,
                              int status) {
  for (const Known& known : kKnownProblems) {
    if (errorOutput.find(known.sign) == std::string::npos) continue;
    return fill(known.message, target) + "\nssh said: " + trimmed(errorOutput);
  }
  std::string text = "cannot work on " + target + ": ssh ";
  if (WIFSIGNALED(status)) {
    text += "was ended by signal " + std::to_string(WTERMSIG(status));
  } else {
    text += "ended with status " + std::to_string(WEXITSTATUS(status));
  }
  const std::string said = trimmed(errorOutput);
  return said.empty() ? text : text + "\nssh said: " + said;
}

std::string explainBootstrapFailure(const std::string& target, const std::string& word,
                                    const std::string& detail) {
  if (word == "live") {
    return "another migration of " + target + " is running: process " + detail +
           " there. Wait for it, or end it on the server";
  }
  if (word == "root") {
    return "no root rights on " + target + ": even with sudo the account is user " + detail +
           " there";
  }
  if (word == "machine") {
    return target + " has the processor '" + detail + "': only x86_64 can be migrated";
  }
  if (word == "kernel") {
    return target + " runs kernel " + detail + ": it must be 3.2 or newer";
  }
  if (word == "space") {
    return "/var on " + target + " has no room for the agent: " + detail +
           " KiB are free, 64 MiB are needed while the migration runs";
  }
  if (word == "directory") return "cannot make /var/qxagent.tmp on " + target + ": " + detail;
  if (word == "noexec") {
    return "programs cannot be run from /var on " + target +
           ": it is mounted noexec. Remount it with exec for the migration (mount -o remount,exec "
           "/var)";
  }
  if (word == "digest") return "the agent was damaged on its way to " + target + ": try again";
  if (word == "tool") return target + " lacks the program " + detail;
  if (word == "unpack") return "the agent could not be unpacked on " + target + ": " + detail;
  return target + ": " + word + " " + detail;
}

}  // namespace agent
