#include "agent/programs/console.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "agent/programs/last_copy.h"
#include "agent/wire/message_fields.h"
#include "agent/wire/steps.h"
#include "host/visible.h"

namespace agent {

namespace {

constexpr size_t kMostLeftOut = 20;  // files, on a terminal

// times: how often the stage has begun, this time included. Both ends have it, one
// after the other.
std::string textOf(const std::string& name, int times) {
  const Step& step = stepOf(name);
  const char* where = times < 2 ? step.firstWhere : step.secondWhere;
  return where ? std::string(step.text) + " " + where : step.text;
}

}  // namespace

Console::Console(bool quiet) : quiet_(quiet), terminal_(isatty(STDOUT_FILENO) != 0) {}

void Console::stageBegins(const std::string& stage) {
  stage_ = stage;
  int& times = begun_[stage];
  // The end here is not finished when it was never begun.
  if (stage == kMethodFinish && begun_[kMethodCreate] < 2) times = 1;
  text_ = textOf(stage, ++times);
  if (quiet_ || !terminal_) return;
  printf("%-18s %s ...", stage.c_str(), text_.c_str());
  shown_ = true;
  fflush(stdout);
}

void Console::stageEnds(const std::string& stage, int result, double seconds) {
  if (quiet_) return;
  clear();
  if (stage != stage_) text_ = textOf(stage, 1);
  printf("%-18s %-34s %8.1f s  %s\n", stage.c_str(), text_.c_str(), seconds,
         result == 0 ? "done" : "FAILED");
  fflush(stdout);
}

void Console::line(const std::string& text) {
  if (quiet_) return;
  clear();
  // Behind blanks, so that nothing a server says looks like a line of ours.
  printf("  %s\n", host::visibleLines(text, "    ").c_str());
  fflush(stdout);
}

void Console::percent(const std::string& description, int percent) {
  if (quiet_) return;
  const std::string what = host::visibleLine(description, 80);
  if (!terminal_) {
    printf("  %s: %d%%\n", what.c_str(), percent);
  } else {
    clear();
    printf("%-18s %s: %d%%", stage_.c_str(), what.c_str(), percent);
    shown_ = true;
  }
  fflush(stdout);
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

void Console::clear() {
  if (shown_) printf("\r\033[K");
  shown_ = false;
}

}  // namespace agent
