// An operator of the tests' own, to try the agent's transports with.
#ifndef QX_TESTS_AGENT_TOY_OPERATOR_H
#define QX_TESTS_AGENT_TOY_OPERATOR_H

#include <atomic>
#include <string>

#include "agent/transport/transport.h"
#include "agent/wire/message.h"
#include "framework/op_factory.h"

namespace toy {

inline constexpr const char* operatorName = "toy";

// What the toys of this process have done; reset() before use.
struct Counts {
  std::atomic<int> finished{0};
  std::atomic<int> finishedWell{0};
  std::atomic<int> sleeping{0};
  std::atomic<int> pausing{0};
};
Counts& counts();
void reset();

// Registers the operator as long as the object lives. Its methods:
//   echo      answers field 1811 as it came, after one line of progress
//   fail      records error -1 "it failed"
//   refuse    ends with code 414 and no text, as a caller without rights gets
//   throw     throws
//   sleep     runs "sleep 60" through the framework's runner
//   shell     runs "sleep 60" through a shell of its own, outside that runner
//   stopServices
//             runs two programs that take two seconds each; fails when the first does not
//             end by itself, and when the second begins
//   whoami    answers the caller's user id in field 1017
//   channel   copies its channel's input to its output
//   silent    neither ends its command nor answers
class Registration {
 public:
  Registration();
  ~Registration();
};

// Sends one request. Returns the transport's result, or the answer's error code.
// text receives the error, or field 1811; number field 1017.
struct Outcome {
  int code = 0;
  std::string text;
  long long number = 0;
};
Outcome ask(QXL::QXLRequestTransport& transport, const std::string& session,
            const std::string& method, const std::string& text = "",
            QXL::QXLProgressHandlerPrototype* handler = nullptr,
            agent::CancelToken* cancel = nullptr, const std::string& channel = "");

// Makes a session ready for stages; returns its name.
std::string open(QXL::QXLRequestTransport& transport);

}  // namespace toy

#endif
