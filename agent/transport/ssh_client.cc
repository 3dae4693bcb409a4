#include "agent/transport/ssh_client.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "agent/system/last_error.h"
#include "agent/system/output_of.h"
#include "host/file.h"
#include "host/process.h"
#include "host/process_mark.h"

namespace agent {

namespace {

constexpr int kConfigurationSeconds = 30;
constexpr const char* kFastCipher = "Ciphers=^aes128-gcm@openssh.com";

std::string ciphersIn(const std::string& configuration) {
  std::istringstream lines(configuration);
  for (std::string line; std::getline(lines, line);) {
    if (line.compare(0, 8, "ciphers ") == 0) return line;
  }
  return "";
}

bool hasAesInstructions() {
  const std::string text = host::readFile("/proc/cpuinfo").value_or("");
  return text.find(" aes ") != std::string::npos || text.find(" aes\n") != std::string::npos;
}

}  // namespace

SshClient::SshClient(const SshAddress& address, std::vector<std::string> options)
    : address_(address), options_(std::move(options)), program_(host::findProgram("ssh")) {
  if (program_.empty()) {
    throw std::runtime_error("this host has no ssh client: install the package openssh-client");
  }
  std::string folder = host::temporaryFolderTemplate();
  if (!mkdtemp(folder.data())) throw std::runtime_error(folder + ": " + errnoText(errno));
  controlDir_ = folder;
}

SshClient::~SshClient() {
  std::error_code error;
  std::filesystem::remove_all(controlDir_, error);
}

std::vector<std::string> SshClient::command(bool master, const std::string& remote) const {
  std::vector<std::string> argv = {program_, "-T", "-x", "-a"};
  // The first value that ssh hears of an option stands.
  for (const std::string& option : options_) argv.insert(argv.end(), {"-o", option});
  const std::vector<std::string> fixed = {std::string("ControlMaster=") + (master ? "yes" : "no"),
                                          "ControlPath=" + controlDir_ + "/master",
                                          "ControlPersist=no",
                                          "ClearAllForwardings=yes",
                                          "PermitLocalCommand=no",
                                          "RemoteCommand=none"};
  for (const std::string& option : fixed) argv.insert(argv.end(), {"-o", option});
  if (address_.port != 0) argv.insert(argv.end(), {"-p", std::to_string(address_.port)});
  argv.insert(argv.end(), {"--", address_.target()});
  if (!remote.empty()) argv.push_back(remote);
  return argv;
}

// A server that hangs takes a connection and says nothing, and ssh would wait for ever:
// for its greeting, or for what comes before the agent's own heartbeat. What the
// user's configuration says of it stands.
void SshClient::limitWaiting(const std::string& configuration) {
  const auto says = [&](const char* line) {
    return ("\n" + configuration).find(std::string("\n") + line + "\n") != std::string::npos;
  };
  if (says("connecttimeout none")) options_.push_back("ConnectTimeout=30");
  if (says("serveraliveinterval 0")) {
    options_.insert(options_.end(), {"ServerAliveInterval=20", "ServerAliveCountMax=3"});
  }
}

// A command that adds no key to those that are known, and so weakens nothing, hears
// which key is looked for.
void SshClient::watchHostKey(const std::string& configuration) {
  if (("\n" + configuration).find("\nknownhostscommand ") != std::string::npos) return;
  const std::string option =
      "KnownHostsCommand=/bin/sh -c \"echo %f %t >>" + controlDir_ + "/host-key\"";
  // Older clients do not know it.
  if (outputOf({program_, "-G", "-F", "none", "-o", option, "--", "host"}, kConfigurationSeconds)) {
    options_.push_back(option);
  }
}

std::string SshClient::hostKey() const {
  std::string key;
  std::istringstream lines(host::readFile(controlDir_ + "/host-key").value_or(""));
  // It is also asked before the server has shown one.
  for (std::string line; std::getline(lines, line);) {
    if (line.compare(0, 7, "SHA256:") == 0 && line.size() < 100) key = line;
  }
  return key;
}

// Where the processor has AES instructions, AES-GCM is several times as fast as
// OpenSSH's own first choice. It goes in front of the client's list unless the
// user has an opinion: then the list differs from the one of an empty
// configuration. Servers of the last fifteen years have the instructions, too.
void SshClient::completeOptions() {
  const auto configuration = [&](const std::vector<std::string>& first) {
    std::vector<std::string> argv = {program_, "-G"};
    argv.insert(argv.end(), first.begin(), first.end());
    argv.insert(argv.end(), {"--", address_.target()});
    return outputOf(argv, kConfigurationSeconds);
  };
  std::vector<std::string> users;
  for (const std::string& option : options_) users.insert(users.end(), {"-o", option});
  const auto own = configuration(users);
  if (own) {
    limitWaiting(*own);
    watchHostKey(*own);
  }
  if (!hasAesInstructions()) return;
  const auto plain = configuration({"-F", "none"});
  if (!own || !plain || ciphersIn(*own) != ciphersIn(*plain)) return;
  // Clients before 8.1 do not know the "^".
  if (configuration({"-o", kFastCipher})) options_.push_back(kFastCipher);
}

}  // namespace agent
