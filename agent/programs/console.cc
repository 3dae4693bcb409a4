#include "agent/programs/console.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "agent/programs/last_copy.h"
#include "agent/programs/paint.h"
#include "agent/programs/progress_line.h"
#include "agent/programs/terminal.h"
#include "agent/wire/steps.h"
#include "host/text.h"
#include "host/visible.h"

namespace agent {

namespace {

using host::textf;

constexpr size_t kMostLeftOut = 20;  // files, on a terminal
constexpr std::chrono::milliseconds kRedrawn(250);

}  // namespace

Console::Console(bool quiet) : quiet_(quiet), terminal_(isatty(STDOUT_FILENO) != 0) {
  if (quiet_ || !terminal_) return;
  drawing_.emplace(kRedrawn, [this]() {
    const std::lock_guard lock(mutex_);
    redraw();
  });
}

void Console::stageBegins(const std::string& stage) {
  const std::lock_guard lock(mutex_);
  watch_.begins(stage);
  redraw();
}

void Console::stageEnds(const std::string& stage, int result, double seconds) {
  const std::lock_guard lock(mutex_);
  const std::string verdict = result == 0 ? painted("done", Tone::kGood, STDOUT_FILENO)
                                          : painted("FAILED", Tone::kBad, STDOUT_FILENO);
  show(textf("%-18s %-34s %8.1f s  %s", stage.c_str(), watch_.ends(stage).c_str(), seconds,
             verdict.c_str()));
}

void Console::line(const std::string& text) {
  const std::lock_guard lock(mutex_);
  // Behind blanks, so that nothing a server says looks like a line of ours.
  show("  " + host::visibleLines(text, "    "));
}

void Console::expect(const Outlook& outlook) {
  const std::lock_guard lock(mutex_);
  watch_.expect(outlook);
}

void Console::percent(const std::string& description, int percent) {
  const std::string what =
      host::visibleLine(description, 80) + ": " + std::to_string(percent) + "%";
  const std::lock_guard lock(mutex_);
  watch_.says(what);
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
  if (quiet_ || !terminal_) return;
  const std::optional<Progress> progress = watch_.look();
  if (!progress || stepOf(progress->stage).asks) return;
  clear();
  // The last column stays free: some terminals go on to the next line from there.
  fputs(progressLine(*progress, columnsOf(STDOUT_FILENO) - 1).c_str(), stdout);
  shown_ = true;
  fflush(stdout);
}

void Console::clear() {
  if (shown_) printf("\r\033[K");
  shown_ = false;
}

}  // namespace agent
