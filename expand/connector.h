// What feeds and drains the standard descriptors of a program that CallerExec
// runs.
#ifndef QX_EXPAND_CONNECTOR_H
#define QX_EXPAND_CONNECTOR_H

#include <poll.h>

#include <cstdint>
#include <string>

#include "expand/export.h"

namespace Expand {

/// Moves data between this process and the parent's end of one pipe. The runner
/// calls process() whenever the descriptor is ready. Connectors are used by one
/// runner at a time, on its thread, and must outlive the run.
class EXPAND_API Connector {
 public:
  /// Does one step of reading or writing, without waiting.
  ///
  /// Returns a positive number to be called again; 0 when the connector has
  /// finished, or a negated errno value when it failed: the runner then closes
  /// the pipe and goes on without it.
  virtual int process() = 0;

  virtual ~Connector();

  /// The runner's entry whose descriptor this connector uses. The entry belongs
  /// to the runner, which may assign another one between two steps.
  void assign(pollfd* entry) { entry_ = entry; }

 protected:
  int fd() const { return entry_->fd; }

 private:
  pollfd* entry_ = nullptr;
};

/// Writes a text in memory to the program's standard input, at most 4096 bytes a
/// step, and then closes it.
class EXPAND_API CfromStaticBuf : public Connector {
 public:
  /// data  not copied: it must stay as it is for the whole run
  /// size  in bytes. Only the first 4096 bytes are ever sent: see process().
  CfromStaticBuf(const char* data, std::uint64_t size) : data_(data), size_(size) {}

  /// Intended: each step writes from the first byte of the data, not from the
  /// position reached, so that of more than 4096 bytes the beginning is repeated.
  /// Programs run with it have been fed so all along, and it must stay.
  int process() override;

 private:
  const char* data_;
  std::uint64_t size_;
  std::uint32_t position_ = 0;
};

/// Collects what the program writes to standard output or standard error.
class EXPAND_API CtoDynaBuf : public Connector {
 public:
  /// limit        largest size of the collected output, in bytes
  /// keepReading  what to do with output that reaches the limit: true reads on and
  ///              drops it; false closes the pipe, and the program gets SIGPIPE or
  ///              EPIPE when it writes on
  /// copyFd       everything that is read, dropped or not, is also written here;
  ///              -1 for nowhere. The descriptor stays the caller's until writing
  ///              to it fails: then it is closed and collecting goes on. It should
  ///              be in blocking mode, and the run waits for its reader.
  CtoDynaBuf(std::uint64_t limit, bool keepReading, int copyFd)
      : limit_(limit), keepReading_(keepReading), copyFd_(copyFd) {}

  int process() override;

  /// What has been collected so far.
  const std::string& output() const { return output_; }

 private:
  void copy(const char* data, std::uint64_t size);

  std::string output_;
  std::uint64_t limit_;
  bool keepReading_;
  int copyFd_;
};

/// Throws the program's output away: closes the pipe as soon as there is any.
class EXPAND_API CtoStaticBuf : public Connector {
 public:
  int process() override;
};

}  // namespace Expand

#endif  // QX_EXPAND_CONNECTOR_H
