#include "agent/programs/console.h"

#include <unistd.h>

#include <cstdio>

#include "host/visible.h"

namespace agent {

namespace {

struct StageText {
  const char* name;
  const char* text;
  const char* firstWhere = nullptr;
  const char* secondWhere = nullptr;
};

// What a stage does, for people.
constexpr StageText stageTexts[] = {
    {"connect", "reach the server"},
    {"measure", "measure the server"},
    {"survey", "look at the server's files"},
    {"create", "open a session", "on the server", "here"},
    {"init", "check the parameters", "on the server", "here"},
    {"lockVPS", "lock the container id"},
    {"createDstSrv", "create the container"},
    {"getUsageDiskSpace", "measure the server's files"},
    {"getFreeDiskSpace", "measure the node's disk"},
    {"dumpQuota", "read the server's disk quotas"},
    {"startRSyncServer", "serve the files, first copy"},
    {"rSync", "copy the files, services running"},
    {"waitRSyncServer", "end the first copy"},
    {"stopServices", "stop the services"},
    {"startRSyncServer2", "serve the files, second copy"},
    {"rSync2", "copy what has changed"},
    {"waitRSyncServer2", "end the second copy"},
    {"restoreQuota", "set the container's disk quotas"},
    {"tuneDstSrv", "adapt the copy to a container"},
    {"verify", "compare the container with the server"},
    {"finish", "finish", "here", "on the server"},
};

// times: how often the stage has begun, this time included. Both ends have it, one
// after the other.
std::string textOf(const std::string& stage, int times) {
  for (const StageText& known : stageTexts) {
    if (stage != known.name) continue;
    const char* where = times < 2 ? known.firstWhere : known.secondWhere;
    return where ? std::string(known.text) + " " + where : known.text;
  }
  return "";
}

}  // namespace

Console::Console(bool quiet) : quiet_(quiet), terminal_(isatty(STDOUT_FILENO) != 0) {}

void Console::stageBegins(const std::string& stage) {
  stage_ = stage;
  int& times = begun_[stage];
  // The end here is not finished when it was never begun.
  if (stage == "finish" && begun_["create"] < 2) times = 1;
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

void Console::clear() {
  if (shown_) printf("\r\033[K");
  shown_ = false;
}

}  // namespace agent
