#include "agent/programs/console.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "agent/programs/last_copy.h"
#include "agent/programs/progress_line.h"
#include "agent/programs/terminal.h"
#include "agent/wire/message_fields.h"
#include "agent/wire/steps.h"
#include "host/text.h"
#include "host/visible.h"

namespace agent {

namespace {

using host::textf;

constexpr size_t kMostLeftOut = 20;  // files, on a terminal
constexpr std::chrono::milliseconds kRedrawn(250);

// times: how often the stage has begun, this time included. Both ends have it, one
// after the other.
std::string textOf(const std::string& name, int times) {
  const Step& step = stepOf(name);
  const char* where = times < 2 ? step.firstWhere : step.secondWhere;
  return where ? std::string(step.text) + " " + where : step.text;
}

}  // namespace

Console::Console(bool quiet) : quiet_(quiet), terminal_(isatty(STDOUT_FILENO) != 0) {
  if (quiet_ || !terminal_) return;
  drawing_ = std::thread([this]() {
    std::unique_lock lock(mutex_);
    while (!ended_.wait_for(lock, kRedrawn, [this]() { return end_; })) redraw();
  });
}

Console::~Console() {
  if (!drawing_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    end_ = true;
  }
  ended_.notify_one();
  drawing_.join();
}

void Console::stageBegins(const std::string& stage) {
  const std::lock_guard lock(mutex_);
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
  redraw();
}

void Console::stageEnds(const std::string& stage, int result, double seconds) {
  const std::lock_guard lock(mutex_);
  running_ = false;
  meter_.reset();
  // Nobody knows what has changed since.
  if (stepOf(stage).copiesFiles) outlook_.bytes = 0;
  if (stage != stage_) text_ = textOf(stage, 1);
  show(textf("%-18s %-34s %8.1f s  %s", stage.c_str(), text_.c_str(), seconds,
             result == 0 ? "done" : "FAILED"));
}

void Console::line(const std::string& text) {
  const std::lock_guard lock(mutex_);
  // Behind blanks, so that nothing a server says looks like a line of ours.
  show("  " + host::visibleLines(text, "    "));
}

void Console::expect(const Outlook& outlook) {
  const std::lock_guard lock(mutex_);
  outlook_ = outlook;
}

void Console::percent(const std::string& description, int percent) {
  const std::string what =
      host::visibleLine(description, 80) + ": " + std::to_string(percent) + "%";
  const std::lock_guard lock(mutex_);
  percent_ = what;
  if (terminal_) {
    redraw();
  } else {
    show("  " + what);
  }
}

void Console::leftOut(const host::CopyReport& report) {
  if (report.isComplete()) return;
  line("The second copy is not complete: " + countText(report) + ".");
  const size_t most = std::min(report.files.size(), kMostLeftOut);
  for (size_t i = 0; i < most; ++i) line("  " + textOf(report.files[i]));
  if (report.count > most) {
    line("  and " + std::to_string(report.count - most) + " more, which the journal lists");
  }
}

void Console::show(const std::string& text) {
  if (quiet_) return;
  clear();
  puts(text.c_str());
  fflush(stdout);
}

void Console::redraw() {
  if (quiet_ || !terminal_ || !running_ || stepOf(stage_).asks) return;
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
  clear();
  // The last column stays free: some terminals go on to the next line from there.
  fputs(progressLine(progress, columnsOf(STDOUT_FILENO) - 1).c_str(), stdout);
  shown_ = true;
  fflush(stdout);
}

void Console::clear() {
  if (shown_) printf("\r\033[K");
  shown_ = false;
}

}  // namespace agent
