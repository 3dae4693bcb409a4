// Data channels: two descriptors at each end, joined by the framework.
#ifndef QX_FRAMEWORK_CHANNEL_H
#define QX_FRAMEWORK_CHANNEL_H

#include <boost/smart_ptr/shared_ptr.hpp>

#include "framework/ref_counter.h"

namespace QXL {

/// One end of a channel. It owns its descriptors and closes them with itself; a
/// process started with them keeps its own copies.
class QXL_API QXLChannelEndPrototype : public virtual QXLRefCounter {
 public:
  /// The descriptor to read from, and the one to write to; -1 for an end that
  /// belongs to another process.
  virtual int getInputFd() = 0;
  virtual int getOutputFd() = 0;
};

/// A channel between the two ends of a migration.
class QXL_API QXLChannelPrototype : public virtual QXLRefCounter {
 public:
  virtual boost::intrusive_ptr<QXLChannelEndPrototype> getDeserializerEnd() = 0;
  virtual boost::intrusive_ptr<QXLChannelEndPrototype> getSerializerEnd() = 0;
};

/// How channels are to be made.
struct QXLChannelSettings {
  int pipeBytes = 1048576;  ///< buffer of each direction; 0 leaves the system's size
};

/// Makes channels between this process and the agent that the migration reads from.
class QXL_API QXLHaulConnector {
 public:
  virtual ~QXLHaulConnector() = default;
  /// Returns null when no channel could be made; the reason is then in
  /// QXL::getErrorMessage().
  virtual boost::intrusive_ptr<QXLChannelPrototype> createChannel(
      const boost::shared_ptr<QXLChannelSettings>& settings) = 0;
};

}  // namespace QXL

#endif
