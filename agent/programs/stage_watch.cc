#include "agent/programs/stage_watch.h"

#include "agent/wire/steps.h"

namespace agent {

void StageWatch::begins(const std::string& stage) {
  stage_ = stage;
  running_ = true;
  percent_.clear();
  text_ = texts_.next(stage);
  meter_.reset();
  if (stepOf(stage).copiesFiles) meter_.emplace();
  if (stepOf(stage).stopsServices && outlook_.outage) outage_ = Clock::now();
}

std::string StageWatch::ends(const std::string& stage) {
  running_ = false;
  meter_.reset();
  // Nobody knows what has changed since.
  if (stepOf(stage).copiesFiles) outlook_.bytes = 0;
  if (stage != stage_) text_ = stepOf(stage).text;
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
