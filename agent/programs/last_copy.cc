#include "agent/programs/last_copy.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "host/error.h"
#include "host/file.h"
#include "host/process_mark.h"

namespace agent {

namespace {

constexpr QXL::QXLCopyStages kLastCopy = {"startRSyncServer2", "rSync2", "waitRSyncServer2"};
constexpr char kFirstCopyEnds[] = "waitRSyncServer";
constexpr char kCheck[] = "checkCopy";

// Of the copy that has just ended.
host::CopyReport takeReport(const std::string& path) {
  host::CopyReport report;
  const auto text = host::readFile(path);
  const int number = errno;
  try {
    if (text) {
      report = host::parseCopyReport(*text);
    } else {
      report.add(
          "", "what was left out is not known: there is no " + path + ": " + std::strerror(number));
    }
  } catch (const host::Error& problem) {
    report.add("", "what was left out is not known: " + path + ": " + problem.what());
  }
  // An earlier one is not to be taken for that of the next.
  std::error_code error;
  std::filesystem::remove(path, error);
  return report;
}

}  // namespace

CopyReportFile::CopyReportFile() : folder_(host::temporaryFolderTemplate()) {
  if (!mkdtemp(folder_.data())) {
    throw std::runtime_error("cannot make the directory " + folder_ + ": " + std::strerror(errno));
  }
  setenv(host::kCopyReportVariable, path().c_str(), 1);
  setenv(host::kCopyFolderVariable, (folder_ + "/rsync").c_str(), 1);
}

CopyReportFile::~CopyReportFile() {
  unsetenv(host::kCopyReportVariable);
  unsetenv(host::kCopyFolderVariable);
  std::error_code error;
  std::filesystem::remove_all(folder_, error);
}

LastCopy::LastCopy(QXL::QXLHaulControl& control, QXL::QXLProgressHandlerPrototype& handler,
                   MigrationView& view, const CopyRules& rules)
    : control_(control), handler_(handler), view_(view), rules_(rules) {}

int LastCopy::stageEnded(const std::string& stage) {
  if (stage == kFirstCopyEnds) {
    tellNotes(takeReport(rules_.report));
    writeEarly(rules_.place);
  }
  if (stage != kLastCopy.end) {
    // What an earlier copy has left out does not matter, and is not to be taken for the last's.
    std::error_code error;
    std::filesystem::remove(rules_.report, error);
    return 0;
  }
  look();
  if (leftOut_.isComplete()) return 0;
  view_.line("It is made once more.");
  if (const int result = control_.copyAgain(kLastCopy)) return result;
  look();
  if (!leftOut_.isComplete()) return conclude();
  view_.line("The second copy is complete now.");
  return 0;
}

void LastCopy::tellNotes(const host::CopyReport& report) {
  for (const std::string& note : report.notes) view_.line(note);
}

void LastCopy::look() {
  leftOut_ = takeReport(rules_.report);
  tellNotes(leftOut_);
  view_.leftOut(leftOut_);
}

int LastCopy::conclude() {
  handler_.stageBegins(kCheck);
  if (rules_.acceptPartial) {
    handler_.stageEnds(kCheck, 0);
    return 0;
  }
  std::string text = countText(leftOut_) + ", although the second copy was made twice. ";
  if (!leftOut_.files.empty()) text += "The first: " + textOf(leftOut_.files.front()) + ". ";
  text +=
      "Mend that, leave it out with --exclude, or go on without it with --accept-partial; "
      "'qxmigrate show " +
      rules_.ctid + "' lists what it is";
  handler_.error(-1, text);
  handler_.stageEnds(kCheck, -1);
  return -1;
}

std::string countText(const host::CopyReport& report) {
  return report.count == 1 ? "1 file is not as it is on the server"
                           : std::to_string(report.count) +
                                 " files are not as they are on the "
                                 "server";
}

}  // namespace agent
