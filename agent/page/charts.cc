#include "agent/page/charts.h"

#include <algorithm>
#include <iterator>

#include "agent/page/outage.h"
#include "agent/page/page_text.h"
#include "host/resources.h"
#include "host/text.h"
#include "host/visible.h"

namespace agent {

namespace {

using host::textf;

constexpr size_t kLongestName = 34;  // bytes: what fits beside a time on a telephone

std::string percent(double part) { return textf("%.3f%%", 100 * std::clamp(part, 0.0, 1.0)); }

std::string pixels(int count) { return std::to_string(count); }

Html svg(const char* id, int height, const char* title, const std::string& description,
         const Html& drawing) {
  const std::string titleId = std::string(id) + "-title", descriptionId = std::string(id) + "-desc";
  return element("svg",
                 {{"role", "img"},
                  {"width", "100%"},
                  {"height", pixels(height)},
                  {"aria-labelledby", titleId + " " + descriptionId}},
                 element("title", {{"id", titleId}}, title) +
                     element("desc", {{"id", descriptionId}}, description) + drawing);
}

Html bar(const char* kind, double begin, double length, int top, int height) {
  return element("rect", {{"class", kind},
                          {"x", percent(begin)},
                          {"y", pixels(top)},
                          {"width", percent(length)},
                          {"height", pixels(height)}});
}

Html line(const char* kind, double at, int top, int bottom) {
  return element("line", {{"class", kind},
                          {"x1", percent(at)},
                          {"x2", percent(at)},
                          {"y1", pixels(top)},
                          {"y2", pixels(bottom)}});
}

// anchor: "start", "middle" or "end"
Html label(const char* kind, const char* anchor, double at, int base, const Html& text) {
  return element(
      "text", {{"class", kind}, {"text-anchor", anchor}, {"x", percent(at)}, {"y", pixels(base)}},
      text);
}

// Between the lines of the scale, seconds: four at most.
double stepOfScale(double total) {
  constexpr int kSteps[] = {1,   2,   5,    10,   15,   30,    60,    120,   300,
                            600, 900, 1800, 3600, 7200, 14400, 21600, 43200, 86400};
  const auto* const step =
      std::find_if(std::begin(kSteps), std::end(kSteps), [&](int one) { return total / one <= 4; });
  return step == std::end(kSteps) ? total / 4 : *step;
}

std::string scaleText(double seconds) {
  const auto whole = static_cast<long long>(seconds);
  if (whole % 3600 == 0 && whole > 0) return textf("%lld h", whole / 3600);
  if (whole % 60 == 0 && whole > 0) return textf("%lld min", whole / 60);
  return textf("%lld s", whole);
}

}  // namespace

Html timelineChart(const host::MigrationRecord& record) {
  constexpr int kTop = 24, kRow = 30;
  const int bottom = kTop + kRow * static_cast<int>(record.stages.size());
  // Stages that took no time at all are drawn at their place.
  const double total = std::max(tookSeconds(record), 0.001);
  const std::optional<size_t> outage = outageBegin(record);
  Html back, front;
  const double step = stepOfScale(total);
  const std::vector<std::string> names = page_text::stages(record);
  for (int i = 0; i * step <= total; ++i) {
    const double at = i * step / total;
    back += line("grid", at, kTop, bottom);
    if (at > 0.9) continue;
    back += label("scale", i == 0 ? "start" : "middle", at, bottom + 16, scaleText(i * step));
  }
  double begin = 0;
  int top = kTop;
  for (size_t i = 0; i < record.stages.size(); ++i, top += kRow) {
    const host::MigrationStage& stage = record.stages[i];
    if (outage == i) {
      const double at = begin / total;
      back = bar("down", at, 1 - at, 0, bottom) + line("down-edge", at, 0, bottom) + back;
      const bool left = at < 0.5;
      front += label("down-name", left ? "start" : "end", left ? at : 1, 15, page_text::kOutage);
    }
    const bool failed = stage.result && *stage.result != 0;
    front += label(failed ? "failed-name" : "name", "start", 0, top + 15,
                   host::visibleLine(names[i], kLongestName) +
                       element("tspan", {{"dx", "8"}}, page_text::stageTime(stage)));
    const char* const kind = failed ? "bar failed" : outage && i >= *outage ? "bar out" : "bar";
    front += bar(kind, begin / total, stage.seconds / total, top + 21, 5);
    begin += stage.seconds;
  }
  return svg("stages", bottom + 22, page_text::kTimelineTitle, page_text::timelineSummary(record),
             back + front);
}

Html resourceChart(const host::MigrationRecord& record) {
  constexpr int kRow = 58;
  constexpr double kBars = 0.6;  // of the width
  Html drawing;
  int top = 0;
  for (const host::ResourceFigures& figures : record.resources) {
    if (!figures.measured) continue;
    const auto measured = static_cast<double>(*figures.measured);
    const auto limit = static_cast<double>(figures.assigned.limit);
    const double longer = std::max({measured, limit, 1.0});
    const std::string what = page_text::resource(figures);
    drawing += label("name", "start", 0, top + 15,
                     host::visibleLine(what.empty() ? figures.name : what, kLongestName));
    const bool limited = figures.assigned.limit < host::kUnlimited;
    drawing += label("amount", "end", 1, top + 28,
                     "measured " + page_text::amount(figures, *figures.measured));
    drawing +=
        label("amount", "end", 1, top + 45,
              (limited ? "limit " : "") + page_text::amount(figures, figures.assigned.limit));
    // Beside no limit at all there is nothing to compare with.
    if (limited) {
      drawing += bar("bar measured", 0, kBars * measured / longer, top + 22, 8);
      drawing += bar("bar limit", 0, kBars * limit / longer, top + 38, 8);
    }
    top += kRow;
  }
  return svg("resources", top, page_text::kResourcesTitle, page_text::kResourcesScale, drawing);
}

}  // namespace agent
