// Data channels inside one process.
#ifndef QX_AGENT_WIRE_CHANNELS_H
#define QX_AGENT_WIRE_CHANNELS_H

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>

#include "framework/channel.h"
#include "host/fd.h"

namespace agent {

/// An end whose descriptors are in this process.
class LocalChannelEnd : public QXL::QXLChannelEndPrototype {
 public:
  /// attendant: a descriptor that is to stay open as long as anyone uses the end.
  LocalChannelEnd(host::Fd input, host::Fd output, host::Fd attendant = host::Fd());
  int getInputFd() override { return input_.get(); }
  int getOutputFd() override { return output_.get(); }

  /// From now on programs that are started inherit the attendant, as the one that uses the
  /// end is to be among them.
  void use();

 private:
  host::Fd input_;
  host::Fd output_;
  host::Fd attendant_;
};

/// An end that waits in an agent's channel table under its token.
class TokenChannelEnd : public QXL::QXLChannelEndPrototype {
 public:
  explicit TokenChannelEnd(std::string token) : token_(std::move(token)) {}
  int getInputFd() override { return -1; }
  int getOutputFd() override { return -1; }
  const std::string& token() const { return token_; }

 private:
  std::string token_;
};

class Channel : public QXL::QXLChannelPrototype {
 public:
  Channel(boost::intrusive_ptr<QXL::QXLChannelEndPrototype> deserializerEnd,
          boost::intrusive_ptr<QXL::QXLChannelEndPrototype> serializerEnd)
      : deserializerEnd_(std::move(deserializerEnd)), serializerEnd_(std::move(serializerEnd)) {}
  boost::intrusive_ptr<QXL::QXLChannelEndPrototype> getDeserializerEnd() override {
    return deserializerEnd_;
  }
  boost::intrusive_ptr<QXL::QXLChannelEndPrototype> getSerializerEnd() override {
    return serializerEnd_;
  }

 private:
  boost::intrusive_ptr<QXL::QXLChannelEndPrototype> deserializerEnd_;
  boost::intrusive_ptr<QXL::QXLChannelEndPrototype> serializerEnd_;
};

/// Ends that came to an agent and wait for the stage that names them. Threads may
/// share it.
class ChannelTable {
 public:
  /// timeout: how long take waits for an end that comes over a transport of its own.
  explicit ChannelTable(std::chrono::seconds timeout = std::chrono::seconds(0))
      : timeout_(timeout) {}

  void put(const std::string& token, boost::intrusive_ptr<QXL::QXLChannelEndPrototype> end);
  /// Takes the end out, to be used; null when there is none under the token. Until then no
  /// program that is started gets anything of it: a service of the server's would keep it.
  boost::intrusive_ptr<QXL::QXLChannelEndPrototype> take(const std::string& token);

 private:
  std::chrono::seconds timeout_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::map<std::string, boost::intrusive_ptr<QXL::QXLChannelEndPrototype>> ends_;
};

/// The two ends of a new pair of pipes; both null with QXL::getErrorMessage() set
/// when there are no descriptors left. Descriptors are close-on-exec. pipeBytes:
/// wanted buffer of each pipe, 0 for the system's; a smaller one is no error.
struct ChannelPair {
  boost::intrusive_ptr<LocalChannelEnd> first;
  boost::intrusive_ptr<LocalChannelEnd> second;
};
ChannelPair makeChannelPair(int pipeBytes);

/// The same on one pair of UNIX sockets: each end is a socket and its duplicate. For
/// ends on one machine, since descriptors can travel through it: the programs at the
/// two ends may then agree on a shorter way. bufferBytes: wanted send buffer.
ChannelPair makeSocketChannelPair(int bufferBytes);

/// A token nobody can guess: 32 hexadecimal digits.
std::string newToken();

}  // namespace agent

#endif
