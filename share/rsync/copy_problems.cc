#include "share/rsync/copy_problems.h"

#include <algorithm>

#include "host/visible.h"
#include "share/rsync/failure.h"

namespace qxrsync {

namespace {

constexpr size_t kLongestLine = 16384;  // bytes; of longer ones the rest is dropped
constexpr std::string_view kSender = "sender";
constexpr const char* kUnreadable = "cannot be read on the server: ";
constexpr const char* kUnwritable = "cannot be written here: ";
constexpr const char* kDiffers = "changed while it was copied";

bool takePrefix(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

// Splits "WHAT: REASON (NUMBER)", as an error of the system ends a line. False for others.
bool takeSystemError(std::string_view& text, std::string_view& reason, std::string_view& number) {
  const size_t open = text.rfind(" (");
  if (open == text.npos || text.back() != ')') return false;
  number = text.substr(open + 2, text.size() - open - 3);
  if (number.empty() || number.find_first_not_of("0123456789") != number.npos) return false;
  const size_t colon = text.rfind(": ", open);
  if (colon == text.npos) return false;
  reason = text.substr(colon + 2, open - colon - 2);
  text = text.substr(0, colon);
  return true;
}

// What stands between quotes, from the first one at or after `from`.
std::string_view quotedIn(std::string_view text, size_t from = 0) {
  const size_t begin = text.find('"', from);
  if (begin == text.npos) return {};
  for (size_t end = text.find('"', begin + 1); end != text.npos; end = text.find('"', end + 1)) {
    // A name may have quotes in it.
    const std::string_view rest = text.substr(end + 1);
    for (const std::string_view behind : {" failed", " -> ", ",", ")", ":"})
      if (rest.empty() || rest.starts_with(behind)) return text.substr(begin + 1, end - begin - 1);
  }
  return {};
}

// "unlink(NAME) failed", "sys_acl_get_file(NAME, ACL_TYPE_ACCESS)"
std::string_view argumentIn(std::string_view text) {
  const size_t begin = text.find('(');
  const size_t end = text.rfind(')');
  if (begin == text.npos || end == text.npos || end < begin) return {};
  const std::string_view arguments = text.substr(begin + 1, end - begin - 1);
  return arguments.substr(0, arguments.find(", "));
}

// Of the file for which "DIRECTORY/.NAME.XXXXXX" is made until it is whole.
std::string nameOfUnfinished(std::string_view path) {
  constexpr size_t kSuffix = 7;
  const size_t slash = path.rfind('/');
  const size_t begin = slash == path.npos ? 0 : slash + 1;
  if (path.size() < begin + kSuffix + 2 || path[begin] != '.' || path[path.size() - kSuffix] != '.')
    return std::string(path);
  return std::string(path.substr(0, begin)) +
         std::string(path.substr(begin + 1, path.size() - kSuffix - begin - 1));
}

std::string nameIn(std::string_view what) {
  if (what.starts_with("rename ")) {
    const size_t arrow = what.find("\" -> \"");
    if (arrow != what.npos) return std::string(quotedIn(what, arrow + 1));
  }
  const std::string_view quoted = quotedIn(what);
  if (what.starts_with("mkstemp ")) return nameOfUnfinished(quoted);
  return std::string(quoted.empty() ? argumentIn(what) : quoted);
}

}  // namespace

CopyProblems::CopyProblems(std::string destination) : destination_(std::move(destination)) {
  while (destination_.size() > 1 && destination_.back() == '/') destination_.pop_back();
}

void CopyProblems::feed(std::string_view bytes) {
  while (!bytes.empty()) {
    const size_t end = bytes.find('\n');
    const std::string_view piece = bytes.substr(0, end);
    partial_ += piece.substr(0, kLongestLine - std::min(partial_.size(), kLongestLine));
    if (end == bytes.npos) return;
    takeLine(partial_);
    partial_.clear();
    bytes.remove_prefix(end + 1);
  }
}

host::CopyReport CopyProblems::report(int status) {
  if (!partial_.empty()) takeLine(partial_);
  partial_.clear();
  if (status != kExitPartial) {
    host::CopyReport complete;
    complete.notes = report_.notes;
    return complete;
  }
  if (!report_.isComplete()) return report_;
  if (keptDeleted_) {
    report_.add("",
                "what is gone on the server was not removed here, as something there could "
                "not be read");
  } else if (!unknown_.empty()) {
    report_.add("", unknown_);
  } else if (!lateVanished_) {
    report_.add("", "rsync does not say what it has left out");
  }
  return report_;
}

void CopyProblems::takeLine(std::string_view line) {
  while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.remove_suffix(1);
  // What is gone is no problem, what is tried again is none yet, and the last line tells a
  // status in words.
  if (acceptsNotes_ && takePrefix(line, kNotePrefix)) return report_.addNote(std::string(line));
  const std::string_view behindFirstWord = line.substr(std::min(line.find(' '), line.size()));
  if (line.empty() || behindFirstWord.starts_with(" has vanished: ") ||
      line.starts_with("WARNING: ") || line.starts_with("rsync warning: ") ||
      line.starts_with("rsync error: "))
    return;
  if (line.starts_with("IO error encountered -- skipping file deletion")) {
    keptDeleted_ = true;
  } else if (takePrefix(line, "ERROR: ")) {
    const size_t end = line.find(" failed verification");
    if (end == line.npos) return add("", std::string(line));
    add(below(line.substr(0, end)), kDiffers);
  } else if (takePrefix(line, "cannot delete non-empty directory: ")) {
    add(below(line), "is gone on the server, and cannot be removed here");
  } else if (takePrefix(line, "rsync: ")) {
    if (line.starts_with("'/") || line.starts_with("[sender] '/"))
      takeEngines(line);
    else
      takeStock(line);
  } else if (unknown_.empty()) {
    unknown_ = line;
  }
}

// "[sender] 'PATH': WHAT: REASON"
void CopyProblems::takeEngines(std::string_view line) {
  const bool there = takePrefix(line, "[sender] ");
  const size_t end = line.find("': ");
  if (end == line.npos) {
    if (line.ends_with("' has vanished"))
      lateVanished_ = true;
    else
      add("", std::string(line));
    return;
  }
  std::string_view what = line.substr(end + 3);
  std::string_view reason = what;
  std::string text(what);
  if (there && (takePrefix(reason, "cannot read it: ") || takePrefix(reason, "cannot open it: ")))
    text = kUnreadable + std::string(reason);
  else if (!there && takePrefix(reason, "cannot write it: "))
    text = kUnwritable + std::string(reason);
  else if (there)
    text += ", on the server";
  add(std::string(line.substr(1, end - 1)), text);
}

// "[sender] WHAT: REASON (NUMBER)"
void CopyProblems::takeStock(std::string_view line) {
  std::string_view who;
  if (line.starts_with("[") && line.find("] ") != line.npos) {
    who = line.substr(1, line.find("] ") - 1);
    line.remove_prefix(line.find("] ") + 2);
  }
  std::string_view what = line;
  std::string_view reason;
  std::string_view number;
  if (!takeSystemError(what, reason, number)) return add("", std::string(line));
  // "No such file or directory": it was there when the list was made. All that is served is
  // another matter.
  constexpr std::string_view kNotThere = "2";
  if (who == kSender && number == kNotThere && !what.starts_with("change_dir ")) {
    lateVanished_ = true;
    return;
  }
  const std::string name = nameIn(what);
  if (name.empty()) return add("", std::string(line));
  if (who == kSender)
    add(name.front() == '/' ? name : "/" + name, kUnreadable + std::string(reason));
  else
    add(below(name), kUnwritable + std::string(reason));
}

// One file may have several lines, in any order; the first that knows why says most.
void CopyProblems::add(const std::string& path, const std::string& reason) {
  const auto same = [&](const host::NotCopied& file) { return file.path == path; };
  const auto known = std::find_if(report_.files.begin(), report_.files.end(), same);
  if (path.empty() || known == report_.files.end())
    report_.add(path, reason);
  else if (known->reason == kDiffers)
    known->reason = host::visibleLine(reason);
}

std::string CopyProblems::below(std::string_view path) const {
  if (path.starts_with(destination_ + "/")) path.remove_prefix(destination_.size());
  return path.starts_with("/") ? std::string(path) : "/" + std::string(path);
}

}  // namespace qxrsync
