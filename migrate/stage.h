// The frame that every stage of both workers runs in.
#ifndef QX_MIGRATE_STAGE_H
#define QX_MIGRATE_STAGE_H

#include <boost/smart_ptr/shared_ptr.hpp>
#include <exception>
#include <string>

#include "framework/migrate_params.h"
#include "framework/request.h"

namespace P2V {

/// The text of a stage whose worker has no parameters of this plug-in.
constexpr char kNoParams[] = "p2v_params not init";

/// One running stage. Each of fail, end and succeed ends the command and returns
/// what the stage is to return: 0, or the error recorded in the request's context.
class Stage {
 public:
  explicit Stage(QXL::QXLRequestLocal& request) : request_(request) {}

  /// Begins the command. False when the caller lacks the right to run stages.
  bool begin();
  /// Ends the command of such a caller: code 414, no text.
  int refuse();

  /// Records the error and ends.
  int fail(const char* format, ...) __attribute__((format(printf, 2, 3)));
  /// Ends, whether or not something has recorded an error.
  int end();
  /// Ends with an answer.
  int succeed(const QXL::QXLWriterPrototype& answer);

  boost::intrusive_ptr<QXL::QXLRequestContextPrototype> context() const {
    return request_.getContextLocal();
  }

 private:
  QXL::QXLRequestLocal& request_;
};

/// Runs `work`, a callable from Stage& to int, as a stage of the worker. What it
/// throws (the program runner does when it cannot fork, for example) fails the
/// stage: an exception must not end the agent. While it runs, functions that report
/// to the calling thread's request report to the worker's.
template <class Work>
int runStage(QXL::QXLRequestLocal& worker, Work work) {
  Stage stage(worker);
  if (!stage.begin()) return stage.refuse();
  const QXL::QXLRequestContextScope scope(stage.context());
  try {
    return work(stage);
  } catch (const std::exception& error) {
    return stage.fail("%s", error.what());
  }
}

typedef boost::shared_ptr<QXA::QXAMigrateP2VSerializerParams> ParamsPtr;

/// The record as this plug-in's own; null when it is none.
ParamsPtr p2vParams(const boost::shared_ptr<QXL::QXLHaulSerializerBaseParams>& params);

/// The record's container id, which is an unsigned 32-bit number, and its text.
unsigned int containerId(const QXL::QXLHaulSerializerBaseParams& params);
std::string containerIdText(const QXL::QXLHaulSerializerBaseParams& params);

}  // namespace P2V

#endif
