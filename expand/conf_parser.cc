#include "expand/conf_parser.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "expand/descriptors.h"

namespace Expand {
namespace {

ConfParserErrHandler thrower;

// Closes a descriptor at the end of a scope, also when a handler throws.
class Closer {
 public:
  explicit Closer(int fd) : fd_(fd) {}
  ~Closer() { close(fd_); }
  Closer(const Closer&) = delete;
  Closer& operator=(const Closer&) = delete;

 private:
  int fd_;
};

std::string toText(const Config& config) {
  std::string text;
  bool first = true;
  for (const auto& [name, section] : config.sections()) {
    if (!first || strcasecmp(name.c_str(), "global") != 0)
      text.append("[").append(name).append("]\n");
    first = false;
    for (const auto& [option, content] : section.options()) {
      if (!content.defined()) continue;
      std::string value;
      content.value(value);
      text.append(option).append("=").append(value).append("\n");
    }
  }
  return text;
}

}  // namespace

ConfParser::ConfParser(ConfParserErrHandler* handler)
    : handler_(handler != nullptr ? handler : &thrower) {}

void ConfParser::init(Method method, const std::string& source) {
  method_ = method;
  source_ = source;
}

bool ConfParser::report(const Expand::Error& error) {
  (*handler_)(error);
  return false;
}

bool ConfParser::readSource() {
  if (method_ == FROM_STRING) {
    text_ = source_;
    return true;
  }
  const char* const path = source_.c_str();
  const Expand::Error::Code code = Expand::Error::CONFIG_READ;
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd == -1) return report({code, "Can't open %s: %s", path, std::strerror(errno)});
  const Closer closer(fd);
  struct stat info;
  if (fstat(fd, &info) == -1)
    return report({code, "Can't fstat %s: %s", path, std::strerror(errno)});

  // The size is only a first idea: it is 0 for files in /proc, and others grow.
  std::string text;
  std::size_t room = static_cast<std::size_t>(info.st_size > 0 ? info.st_size : 0) + 4096;
  for (;;) {
    const std::size_t length = text.size();
    text.resize(length + room);
    const ssize_t got = readFD(fd, &text[length], room);
    if (got == -1) return report({code, "Can't read %s: %s", path, std::strerror(errno)});
    text.resize(length + static_cast<std::size_t>(got));
    if (static_cast<std::size_t>(got) < room) break;
  }
  text_ = text;
  return true;
}

void ConfParser::save(Method method, const Config& config, std::string& target) {
  const std::string text = toText(config);
  if (method == FROM_STRING) {
    target = text;
    return;
  }
  const char* const path = target.c_str();
  const Expand::Error::Code code = Expand::Error::CONFIG_WRITE;
  const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd == -1) {
    report({code, "Can't open %s for writing: %s", path, std::strerror(errno)});
    return;
  }
  const bool written = writeFD(fd, text.data(), text.size()) != -1;
  const int error = errno;
  const bool closed = close(fd) == 0;
  if (!written) errno = error;
  if (!written || !closed) report({code, "Can't write to %s: %s", path, std::strerror(errno)});
}

}  // namespace Expand
