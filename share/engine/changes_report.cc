#include "share/engine/changes_report.h"

#include <algorithm>
#include <array>

#include "host/visible.h"
#include "share/engine/payload.h"

namespace engine {

namespace {

constexpr size_t kMostPlaces = 16;
constexpr size_t kLongestPlace = 100;  // bytes
constexpr size_t kLongestList = 900;   // bytes
constexpr size_t kLongestLine = 1000;  // bytes
constexpr std::array<const char*, 5> kTexts = {
    "tracked",
    "looked for everywhere, as the file system cannot be watched",
    "looked for everywhere, as too much has changed",
    "looked for everywhere, as nothing watched it",
    "looked for everywhere, as it was mounted since",
};

std::string textOf(const ChangesReport::Place& place) {
  std::string text = "on /" + host::visibleLine(place.path, kLongestPlace);
  if (place.how != ChangesReport::How::kTracked && !place.type.empty())
    text += " (" + host::visibleLine(place.type, kLongestPlace) + ")";
  return text + ": " + kTexts[static_cast<unsigned>(place.how)];
}

}  // namespace

void putReport(Buffer& to, const ChangesReport& report) {
  const size_t count = std::min(report.places.size(), kMostPlaces);
  putNumber(to, count);
  for (size_t i = 0; i < count; ++i) {
    putText(to, report.places[i].path.substr(0, kLongestPlace));
    putText(to, report.places[i].type.substr(0, kLongestPlace));
    putNumber(to, static_cast<unsigned>(report.places[i].how));
  }
  putNumber(to, report.further + (report.places.size() - count));
  putNumber(to, report.directories);
}

ChangesReport takeReport(std::string_view payload) {
  Decoder from(payload);
  ChangesReport report;
  const std::uint64_t count = from.number(kMostPlaces, "number of places");
  for (std::uint64_t i = 0; i < count; ++i) {
    ChangesReport::Place place;
    place.path = from.text(kLongestPlace, "path");
    place.type = from.text(kLongestPlace, "type");
    place.how = static_cast<ChangesReport::How>(from.number(kTexts.size() - 1, "reason"));
    report.places.push_back(std::move(place));
  }
  report.further = from.number();
  report.directories = from.number();
  expectEnd(from);
  return report;
}

std::string textOf(const ChangesReport& report) {
  std::string text = "changes ";
  std::uint64_t further = report.further + report.places.size();
  for (const ChangesReport::Place& place : report.places) {
    const std::string next = textOf(place) + "; ";
    if (text.size() + next.size() > kLongestList) break;
    text += next;
    --further;
  }
  if (further > 0) text += "and " + std::to_string(further) + " more; ";
  return host::visibleLine(
      text + std::to_string(report.directories) +
          (report.directories == 1 ? " directory visited" : " directories visited"),
      kLongestLine);
}

}  // namespace engine
