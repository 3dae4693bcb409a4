#include "agent/plan/limits.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "agent/plan/amounts.h"
#include "agent/plan/records_json.h"
#include "host/resources.h"

namespace agent {

std::vector<PlannedLimit> plannedLimits(const Measurement& measurement,
                                        const host::ShellVars& config) {
  // The figures bear the names of what they limit.
  const nlohmann::json figures = toJson(measurement);
  const auto figureOf = [&](const host::Resource& resource) -> std::optional<uint64_t> {
    const auto figure = figures.find(resource.name);
    if (figure == figures.end()) return std::nullopt;
    // What a server says of itself need not make sense.
    return figure->is_number_float()
               ? static_cast<uint64_t>(std::clamp(figure->get<double>(), 0.0, 9e18))
               : figure->get<uint64_t>();
  };
  const auto textOf = [&](const host::Resource& resource, uint64_t figure) {
    std::string text = amountText(figure, resource.unit);
    if (resource.unit == std::string_view("pages")) {
      text += " pages, " + amountText(figure * measurement.pageSize, "bytes");
    }
    return text;
  };
  std::vector<PlannedLimit> limits;
  for (const host::Resource& resource : host::resources()) {
    const std::string value = host::valueOf(config, host::recordName(resource));
    if (value.empty()) continue;
    const size_t colon = value.find(':');
    PlannedLimit limit;
    limit.name = resource.name;
    limit.unit = resource.unit;
    limit.figure = figureOf(resource);
    limit.measured = limit.figure ? textOf(resource, *limit.figure) : resource.computed;
    if (colon != std::string::npos) limit.soft = value.substr(0, colon);
    limit.hard = colon == std::string::npos ? value : value.substr(colon + 1);
    limits.push_back(limit);
  }
  return limits;
}

std::vector<host::ResourceFigures> figuresOf(const std::vector<PlannedLimit>& limits) {
  std::vector<host::ResourceFigures> list;
  for (const PlannedLimit& limit : limits) {
    if (limit.measured.empty()) continue;
    const auto assigned =
        host::parseResource(limit.soft.empty() ? limit.hard : limit.soft + ":" + limit.hard);
    if (assigned) list.push_back({limit.name, limit.figure, *assigned});
  }
  return list;
}

}  // namespace agent
