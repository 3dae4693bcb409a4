#include "host/copy_report.h"

#include "host/error.h"
#include "host/text.h"
#include "host/visible.h"

namespace host {
namespace {

// Of one line, so that a thousand of them are a record that can be read again.
constexpr size_t kLongest = 1000;

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

std::string formatCopyReport(const CopyReport& report) {
  std::string text = std::to_string(report.count) + "\n";
  // Neither has tabs or line ends in it: visibleLine leaves none.
  for (const NotCopied& file : report.files) text += file.path + "\t" + file.reason + "\n";
  return text;
}

CopyReport parseCopyReport(std::string_view text) {
  const std::vector<std::string_view> lines = splitLines(text);
  if (lines.empty() || text.back() != '\n') refuse();
  const auto count = parseDecimal(lines.front());
  if (!count || lines.size() - 1 > kMaxNotCopied || lines.size() - 1 > *count) refuse();
  CopyReport report;
  for (size_t i = 1; i < lines.size(); ++i) {
    const size_t tab = lines[i].find('\t');
    if (tab == lines[i].npos) refuse();
    report.add(std::string(lines[i].substr(0, tab)), std::string(lines[i].substr(tab + 1)));
  }
  report.count = *count;
  return report;
}

}  // namespace host
