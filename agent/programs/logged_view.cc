#include "agent/programs/logged_view.h"

#include "agent/programs/last_copy.h"
#include "agent/system/log_file.h"
#include "host/text.h"
#include "host/visible.h"

namespace agent {

using host::textf;

void LoggedView::stageBegins(const std::string& stage) {
  writeLog(stage + " begins");
  shown_->stageBegins(stage);
}

void LoggedView::stageEnds(const std::string& stage, int result, double seconds) {
  writeLog(textf("%s %s, %.1f s", stage.c_str(), result == 0 ? "done" : "FAILED", seconds));
  shown_->stageEnds(stage, result, seconds);
}

void LoggedView::line(const std::string& text) {
  writeLog("  " + host::visibleLines(text));
  shown_->line(text);
}

void LoggedView::expect(const Outlook& outlook) { shown_->expect(outlook); }

void LoggedView::percent(const std::string& description, int percent) {
  writeLog(textf("  %s: %d%%", host::visibleLine(description).c_str(), percent));
  shown_->percent(description, percent);
}

void LoggedView::leftOut(const host::CopyReport& report) {
  if (!report.isComplete()) {
    writeLog("The second copy is not complete: " + countText(report) + ".");
    for (const auto& file : report.files) writeLog("  " + textOf(file));
  }
  shown_->leftOut(report);
}

}  // namespace agent
