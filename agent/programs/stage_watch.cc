#include "agent/programs/stage_watch.h"

#include "agent/wire/message_fields.h"
#include "agent/wire/steps.h"

namespace agent {

namespace {

// times: how often the stage has begun, this time included. Both ends have it, one
// after the other.
std::string textOf(const std::string& name, int times) {
  const Step& step = stepOf(name);
  const char* where = times < 2 ? step.firstWhere : step.secondWhere;
  return where ? std::string(step.text) + " " + where : step.text;
}

}  // namespace

void StageWatch::begins(const std::string& stage) {
  stage_ = stage;
  running_ = true;
  percent_.clear();
  int& times = begun_[stage];
  // The end here is not finished when it was never begun.
  if (stage == kMethodFinish && begun_[kMethodCreate] < 2) times = 1;
  text_ = textOf(stage, ++times);
  meter_.reset();
  if (stepOf(stage).copiesFiles) meter_.emplace();
  if (stepOf(stage).stopsServices && outlook_.outage) outage_ = Clock::now();
}

std::string StageWatch::ends(const std::string& stage) {
  running_ = false;
  meter_.reset();
  // Nobody knows what has changed since.
  if (stepOf(stage).copiesFiles) outlook_.bytes = 0;
  if (stage != stage_) text_ = textOf(stage, 1);
  return text_;
}

std::optional<Progress> StageWatch::look() {
  if (!running_) return std::nullopt;
  Progress progress;
  progress.stage = stage_;
  progress.text = text_;
  progress.percent = percent_;
  progress.toCopy = outlook_.bytes;
  if (meter_) progress.copied = meter_->read();
  if (outage_) {
    progress.outage =
        std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - *outage_).count();
  }
  return progress;
}

}  // namespace agent
