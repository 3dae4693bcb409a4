#include "share/rsync/progress.h"

#include <algorithm>
#include <charconv>

namespace qxrsync {

namespace {

constexpr int kBarWidth = 20;

std::string_view withoutLeadingBlanks(std::string_view text) {
  const size_t start = text.find_first_not_of(' ');
  return start == std::string_view::npos ? std::string_view() : text.substr(start);
}

template <typename Number>
bool takeNumber(std::string_view& text, Number& value) {
  text = withoutLeadingBlanks(text);
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc()) return false;
  text.remove_prefix(static_cast<size_t>(stop - text.data()));
  return true;
}

}  // namespace

std::optional<Progress> parseProgress(std::string_view line) {
  Progress progress;
  if (!takeNumber(line, progress.bytes) || line.empty() || line.front() != ' ') return std::nullopt;
  if (!takeNumber(line, progress.percent) || line.empty() || line.front() != '%')
    return std::nullopt;
  // The rate tells a progress line from one of another kind that happens to
  // begin with two numbers.
  if (line.find("B/s") == std::string_view::npos) return std::nullopt;
  progress.listing = line.find("ir-chk=") != std::string_view::npos;
  return progress;
}

std::string renderBar(std::uint64_t bytes, int percent) {
  percent = std::clamp(percent, 0, 100);
  const auto filled = static_cast<size_t>(percent * kBarWidth / 100);
  std::string number = std::to_string(percent);
  number.insert(0, 3 - number.size(), ' ');
  return std::to_string(bytes) + " " + number + "% |" + std::string(filled, '#') +
         std::string(kBarWidth - filled, ' ') + "|";
}

int ProgressBar::shownPercent(const Progress& progress) const {
  if (!progress.listing || usedBytes_ == 0) return progress.percent;
  const double share = static_cast<double>(progress.bytes) / static_cast<double>(usedBytes_);
  return std::min(progress.percent, static_cast<int>(std::min(share, 1.0) * 100));
}

std::string ProgressBar::takeLine(std::string_view line, char end) {
  if (line.empty() && (end == '\r' || latest_)) return {};  // around progress lines
  if (std::optional<Progress> progress = parseProgress(line)) {
    // Within one file stock rsync leaves out whether it is still listing.
    if (line.find("-chk=") == std::string_view::npos && (!latest_ || latest_->listing))
      progress->listing = true;
    latest_ = progress;
    return {};
  }
  return std::string(line) + end;
}

std::string ProgressBar::feed(std::string_view piece) {
  std::string others;
  while (!piece.empty()) {
    const size_t end = piece.find_first_of("\r\n");
    partial_ += piece.substr(0, end);
    if (end == std::string_view::npos) break;
    others += takeLine(partial_, piece[end]);
    partial_.clear();
    piece.remove_prefix(end + 1);
  }
  return others;
}

std::optional<std::string> ProgressBar::changedBar() {
  if (!latest_) return std::nullopt;
  std::string bar = renderBar(latest_->bytes, shownPercent(*latest_));
  if (bar == shown_) return std::nullopt;
  shown_ = bar;
  return bar;
}

std::string ProgressBar::finish(bool complete) {
  std::string rest = partial_.empty() ? std::string() : takeLine(partial_, '\n');
  partial_.clear();
  if (!latest_) return rest;
  return rest + renderBar(latest_->bytes, complete ? 100 : shownPercent(*latest_)) + "\n";
}

}  // namespace qxrsync
