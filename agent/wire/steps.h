// The steps of a migration, by name: what each is called for people, how long another
// machine may take for it, and what it does that the agent must undo.
#ifndef QX_AGENT_WIRE_STEPS_H
#define QX_AGENT_WIRE_STEPS_H

#include <chrono>
#include <cstddef>
#include <map>
#include <string>

#include "agent/wire/frames.h"

namespace agent {

/// A row of the one table in which steps are listed: the stages of the plug-in, which go by
/// their method's name, and what this agent does besides.
struct Step {
  const char* name;
  /// What it does, for people.
  const char* text;
  /// Longer than any honest agent takes.
  std::chrono::milliseconds longest = std::chrono::hours(24);
  /// The longest frame that may come meanwhile.
  size_t frameBytes = kUsualFrameBytes;
  /// Both ends have it: where the one that comes first is, and the other.
  const char* firstWhere = nullptr;
  const char* secondWhere = nullptr;
  /// It stops the services that the parameters name, which a migration that fails starts
  /// again.
  bool stopsServices = false;
  /// Files are copied in it, by programs that the node's end starts.
  bool copiesFiles = false;
  /// ssh may ask for a password meanwhile, on the same terminal.
  bool asks = false;
};

/// The row of that name; for an unknown name, one without a text.
const Step& stepOf(const std::string& name);

/// What the steps of one migration are called for people, as they come.
class StepTexts {
 public:
  /// Of a step that begins. Where both ends have it, it says at which this is.
  std::string next(const std::string& name);

 private:
  std::map<std::string, int> begun_;  ///< how often each has
};

}  // namespace agent

#endif
