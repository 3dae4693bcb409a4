#include "agent/programs/paint.h"

#include <unistd.h>

#include <cstdlib>
#include <utility>

#include "agent/system/log_file.h"
#include "host/text.h"

namespace agent {

namespace {

Painting chosen = Painting::kAuto;

bool isPainted(int fd) {
  if (chosen != Painting::kAuto) return chosen == Painting::kAlways;
  // https://no-color.org: present and not empty.
  const char* none = getenv("NO_COLOR");
  const char* term = getenv("TERM");
  return isatty(fd) != 0 && (none == nullptr || *none == '\0') &&
         (term == nullptr || std::string_view(term) != "dumb");
}

// "Select Graphic Rendition" of ECMA-48, section 8.3.117.
const char* colorOf(Tone tone) {
  switch (tone) {
    case Tone::kGood:
      return "\033[32m";
    case Tone::kCaution:
      return "\033[33m";
    case Tone::kBad:
      break;
  }
  return "\033[1;31m";
}

constexpr std::pair<std::string_view, Tone> kMarks[] = {
    {"BLOCKED", Tone::kBad},          {"warning", Tone::kCaution},
    {"Verdict: blocked", Tone::kBad}, {"Verdict: ready with warnings", Tone::kCaution},
    {"Verdict: ready", Tone::kGood},
};

std::string withMark(std::string_view line, int fd) {
  for (const auto& [mark, tone] : kMarks) {
    if (line.starts_with(mark)) {
      return painted(mark, tone, fd).append(line.substr(mark.size()));
    }
  }
  return std::string(line);
}

}  // namespace

void choosePainting(Painting painting) { chosen = painting; }

std::string painted(std::string_view text, Tone tone, int fd) {
  if (!isPainted(fd)) return std::string(text);
  return std::string(colorOf(tone)).append(text) + "\033[0m";
}

void present(const std::string& text, FILE* stream) {
  writeLog(text);
  for (const std::string_view line : host::splitLines(text)) {
    fprintf(stream, "%s\n", withMark(line, fileno(stream)).c_str());
  }
}

}  // namespace agent
