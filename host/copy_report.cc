#include "host/copy_report.h"

#include "host/error.h"
#include "host/text.h"
#include "host/visible.h"

namespace host {
namespace {

// Of one line, so that a thousand of them are a record that can be read again.
constexpr size_t kLongest = 1000;

// Stands for the path in the line of a note; paths begin with a slash, or are empty.
constexpr std::string_view kNoteMark = "=";

size_t bytesOf(const std::vector<NotCopied>& files) {
  size_t bytes = 0;
  for (const NotCopied& file : files) bytes += file.path.size() + file.reason.size();
  return bytes;
}

[[noreturn]] void refuse() { fail(ExitCode::kBadConfig, "it is not the report of a copy"); }

}  // namespace

std::string textOf(const NotCopied& file) {
  return file.path.empty() ? file.reason : file.path + ": " + file.reason;
}

void CopyReport::add(const std::string& path, const std::string& reason) {
  ++count;
  NotCopied file{visibleLine(path, kLongest), visibleLine(reason, kLongest)};
  if (files.size() >= kMaxNotCopied ||
      bytesOf(files) + file.path.size() + file.reason.size() > kMaxReportBytes) {
    return;
  }
  files.push_back(std::move(file));
}

void CopyReport::addNote(const std::string& text) {
  if (notes.size() < kMaxCopyNotes) notes.push_back(visibleLine(text, kLongest));
}

std::string formatCopyReport(const CopyReport& report) {
  std::string text = std::to_string(report.count) + "\n";
  // Neither has tabs or line ends in it: visibleLine leaves none.
  for (const NotCopied& file : report.files) text += file.path + "\t" + file.reason + "\n";
  for (const std::string& note : report.notes) text += std::string(kNoteMark) + "\t" + note + "\n";
  return text;
}

CopyReport parseCopyReport(std::string_view text) {
  const std::vector<std::string_view> lines = splitLines(text);
  if (lines.empty() || text.back() != '\n') refuse();
  const auto count = parseDecimal(lines.front());
  if (!count || lines.size() - 1 > kMaxNotCopied + kMaxCopyNotes) refuse();
  CopyReport report;
  for (size_t i = 1; i < lines.size(); ++i) {
    const size_t tab = lines[i].find('\t');
    if (tab == lines[i].npos) refuse();
    const std::string reason(lines[i].substr(tab + 1));
    if (lines[i].substr(0, tab) == kNoteMark)
      report.addNote(reason);
    else
      report.add(std::string(lines[i].substr(0, tab)), reason);
  }
  if (report.count > *count) refuse();
  report.count = *count;
  return report;
}

}  // namespace host
