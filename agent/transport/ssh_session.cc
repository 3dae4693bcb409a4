#include "agent/transport/ssh_session.h"

#include <fcntl.h>
#include <poll.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "agent/system/event.h"
#include "agent/system/last_error.h"
#include "agent/transport/arrival.h"
#include "agent/transport/ssh_problem.h"
#include "framework/runner.h"
#include "host/file.h"
#include "host/process_mark.h"

namespace agent {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds channelPatience(30);
constexpr size_t maxErrorText = 65536;
constexpr size_t maxLine = 4096;
// What login scripts of the server may print before the agent's program talks.
constexpr int maxNoiseLines = 1000;
constexpr const char* fastCipher = "Ciphers=^aes128-gcm@openssh.com";

std::string findProgram(const std::string& name) {
  const char* path = getenv("PATH");
  std::istringstream folders(path ? path : "/usr/local/bin:/usr/bin:/bin");
  for (std::string folder; std::getline(folders, folder, ':');) {
    const std::string candidate = (folder.empty() ? "." : folder) + "/" + name;
    if (access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return "";
}

void makePipe(host::Fd& readEnd, host::Fd& writeEnd) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe: " + errnoText(errno));
  readEnd.reset(ends[0]);
  writeEnd.reset(ends[1]);
}

// Output of a program, or nothing when it fails.
std::optional<std::string> outputOf(const std::vector<std::string>& argv) {
  std::vector<const char*> pointers;
  for (const std::string& word : argv) pointers.push_back(word.c_str());
  pointers.push_back(nullptr);
  QXL::GenExec runner(65536);
  if (runner.execWithOnlyError(pointers.data(), QXL::GenExecOutput, 30) != 0) return std::nullopt;
  return runner.getOutput(QXL::GenExecOutput);
}

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

// Takes what comes before the bytes of a data channel off it. False if they do not
// begin in time, or the request is cancelled.
bool skipToChannel(int fd, const CancelToken* cancel) {
  const Clock::time_point giveUpAt = Clock::now() + channelPatience;
  std::string line;
  for (int noise = 0; noise <= maxNoiseLines && Clock::now() < giveUpAt;) {
    if (cancel && cancel->isCancelled()) return false;
    pollfd entries[2] = {{fd, POLLIN, 0}, {cancel ? cancel->fd() : -1, POLLIN, 0}};
    if (::poll(entries, 2, 1000) <= 0 || entries[0].revents == 0) continue;
    char byte;
    const ssize_t count = read(fd, &byte, 1);
    if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) return false;
    if (count < 0) continue;
    if (byte != '\n') {
      if (line.size() < maxLine) line += byte;
      continue;
    }
    if (line == channelBegins) return true;
    line.clear();
    ++noise;
  }
  return false;
}

}  // namespace

SshSession::SshSession(const SshAddress& address, std::vector<std::string> options)
    : address_(address), options_(std::move(options)), program_(findProgram("ssh")) {
  if (program_.empty()) {
    throw std::runtime_error("the program ssh is missing here: install openssh-client");
  }
  std::string folder = host::temporaryFolderTemplate();
  if (!mkdtemp(folder.data())) throw std::runtime_error(folder + ": " + errnoText(errno));
  controlDir_ = folder;
}

SshSession::~SshSession() {
  // The end of its input tells the agent to go; the program that started it
  // cleans up and ends, and with it the connection.
  input_.reset();
  const Clock::time_point giveUpAt = Clock::now() + leavePatience_;
  while (master_.started() && !master_.poll() && Clock::now() < giveUpAt) {
    // Nobody else reads what is still coming.
    if (output_) {
      pollfd entry{output_.get(), POLLIN, 0};
      char buffer[4096];
      if (::poll(&entry, 1, 20) > 0 && read(output_.get(), buffer, sizeof buffer) == 0) {
        output_.reset();
      }
    } else {
      pollfd entry{master_.fd(), POLLIN, 0};
      ::poll(&entry, 1, 20);
    }
    if (!errorThread_.joinable()) drainErrors();
  }
  channels_.clear();
  stopErrors_.reset();
  if (errorThread_.joinable()) errorThread_.join();
  if (!controlDir_.empty()) {
    std::error_code error;
    std::filesystem::remove_all(controlDir_, error);
  }
}

void SshSession::abandon() { leavePatience_ = std::chrono::seconds(5); }

std::vector<std::string> SshSession::command(bool master, const std::string& remote) const {
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
void SshSession::limitWaiting(const std::string& configuration) {
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
void SshSession::watchHostKey(const std::string& configuration) {
  if (("\n" + configuration).find("\nknownhostscommand ") != std::string::npos) return;
  const std::string option =
      "KnownHostsCommand=/bin/sh -c \"echo %f >>" + controlDir_ + "/host-key\"";
  // Older clients do not know it.
  if (outputOf({program_, "-G", "-F", "none", "-o", option, "--", "host"})) {
    options_.push_back(option);
  }
}

std::string SshSession::hostKey() const {
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
void SshSession::completeOptions() {
  const auto configuration = [&](const std::vector<std::string>& first) {
    std::vector<std::string> argv = {program_, "-G"};
    argv.insert(argv.end(), first.begin(), first.end());
    argv.insert(argv.end(), {"--", address_.target()});
    return outputOf(argv);
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
  if (configuration({"-o", fastCipher})) options_.push_back(fastCipher);
}

void SshSession::start(const Bundle& bundle, QXL::QXLProgressHandlerPrototype* handler,
                       const CancelToken* cancel) {
  const auto tell = [&](const std::string& text) {
    if (handler) handler->progress(QXL::QXLRequestProgressData(text));
  };
  tell("Connecting to " + address_.target() + " by ssh...");
  completeOptions();

  host::Fd theirInput, theirOutput;
  makePipe(theirInput, input_);
  makePipe(output_, theirOutput);
  makePipe(errors_, errorsWrite_);
  for (const host::Fd* fd : {&input_, &output_, &errors_}) {
    fcntl(fd->get(), F_SETFL, fcntl(fd->get(), F_GETFL) | O_NONBLOCK);
  }
  ChildOptions options;
  options.streams[0] = theirInput.get();
  options.streams[1] = theirOutput.get();
  options.streams[2] = errorsWrite_.get();
  // It must be able to ask for a password on the terminal.
  options.ownGroup = false;
  const int problem =
      master_.start(command(true, arrivalCommand(bundle.bytes, bundle.sha256)), options);
  if (problem != 0) throw std::runtime_error(program_ + ": " + errnoText(problem));
  theirInput.reset();
  theirOutput.reset();

  for (int noise = 0;;) {
    const std::string line = readLine(cancel);
    std::istringstream words(line);
    std::string tag, word, detail;
    words >> tag >> word;
    if (tag != "QX") {
      if (++noise > maxNoiseLines) giveUp(cancel);
      continue;
    }
    if (word == "send") {
      tell("Sending the agent to " + address_.target() + " (" +
           std::to_string((bundle.bytes + 1048575) / 1048576) + " MiB)...");
      sendBundle(bundle, cancel);
    } else if (word == "run") {
      break;
    } else if (word == "error") {
      words >> word;
      std::getline(words >> std::ws, detail);
      throw std::runtime_error(explainArrivalFailure(address_.target(), word, detail));
    }
  }
  startErrorThread();
}

// One line of the server's program. Bytes behind it stay unread: they belong to
// the agent.
std::string SshSession::readLine(const CancelToken* cancel) {
  std::string line;
  for (;;) {
    char byte;
    const ssize_t count = read(output_.get(), &byte, 1);
    if (count == 1) {
      if (byte == '\n') return line;
      if (line.size() < maxLine) line += byte;
      continue;
    }
    if (count == 0) giveUp(cancel);
    if (errno != EAGAIN && errno != EINTR) giveUp(cancel);
    if (cancel && cancel->isCancelled()) giveUp(cancel);
    pollfd entries[3] = {{output_.get(), POLLIN, 0},
                         {errors_.get(), POLLIN, 0},
                         {cancel ? cancel->fd() : -1, POLLIN, 0}};
    ::poll(entries, 3, 1000);
    drainErrors();
  }
}

void SshSession::sendBundle(const Bundle& bundle, const CancelToken* cancel) {
  const host::Fd file(open(bundle.path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) throw std::runtime_error(bundle.path + ": " + errnoText(errno));
  char buffer[65536];
  ssize_t got;
  while ((got = read(file.get(), buffer, sizeof buffer)) > 0) {
    for (ssize_t sent = 0; sent < got;) {
      const ssize_t count = write(input_.get(), buffer + sent, static_cast<size_t>(got - sent));
      if (count > 0) {
        sent += count;
        continue;
      }
      // A server's program that has given up says why; that is read next.
      if (count < 0 && errno != EAGAIN && errno != EINTR) return;
      if (cancel && cancel->isCancelled()) giveUp(cancel);
      pollfd entries[3] = {{input_.get(), POLLOUT, 0},
                           {errors_.get(), POLLIN, 0},
                           {cancel ? cancel->fd() : -1, POLLIN, 0}};
      ::poll(entries, 3, 1000);
      drainErrors();
    }
  }
  if (got < 0) throw std::runtime_error(bundle.path + ": " + errnoText(errno));
}

// The connection ended before the agent ran.
void SshSession::giveUp(const CancelToken* cancel) {
  if (cancel && cancel->isCancelled()) {
    master_.signalGroup(SIGTERM);
    throw std::runtime_error("Cancelled");
  }
  input_.reset();
  for (int i = 0; i < 250 && !master_.poll(); ++i) {
    pollfd entry{errors_.get(), POLLIN, 0};
    ::poll(&entry, 1, 20);
    drainErrors();
  }
  drainErrors();
  throw std::runtime_error(explainSshFailure(address_.target(), errorText_, master_.status()));
}

bool SshSession::drainErrors() {
  char buffer[4096];
  ssize_t count;
  while ((count = read(errors_.get(), buffer, sizeof buffer)) > 0) {
    if (errorText_.size() < maxErrorText) errorText_.append(buffer, static_cast<size_t>(count));
  }
  return count != 0;
}

// From now on what comes is the agent's log.
void SshSession::startErrorThread() {
  host::Fd stopRead;
  makePipe(stopRead, stopErrors_);
  errorThread_ = std::thread([this, stop = std::move(stopRead)]() {
    for (;;) {
      pollfd entries[2] = {{errors_.get(), POLLIN, 0}, {stop.get(), POLLIN, 0}};
      ::poll(entries, 2, -1);
      char buffer[4096];
      ssize_t count;
      while ((count = read(errors_.get(), buffer, sizeof buffer)) > 0) {
        [[maybe_unused]] const ssize_t shown =
            write(STDERR_FILENO, buffer, static_cast<size_t>(count));
      }
      if (entries[1].revents) return;
    }
  });
}

boost::intrusive_ptr<LocalChannelEnd> SshSession::openChannel(const std::string& token,
                                                              int pipeBytes,
                                                              const CancelToken* cancel) {
  ChannelPair pair = makeChannelPair(pipeBytes);
  if (!pair.first) return nullptr;
  ChildOptions options;
  options.streams[0] = pair.second->getInputFd();
  options.streams[1] = pair.second->getOutputFd();
  options.streams[2] = errorsWrite_.get();
  auto child = std::make_unique<Child>();
  const int problem = child->start(command(false, channelCommand(token)), options);
  if (problem != 0) {
    fail(program_ + ": " + errnoText(problem));
    return nullptr;
  }
  channels_.push_back(std::move(child));
  // ssh alone holds that end: its death is the end of the stream.
  pair.second.reset();
  if (!skipToChannel(pair.first->getInputFd(), cancel)) {
    fail(cancel && cancel->isCancelled()
             ? "Cancelled"
             : "a data channel to " + address_.target() + " could not be opened");
    return nullptr;
  }
  return pair.first;
}

}  // namespace agent
