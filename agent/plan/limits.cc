#include "agent/plan/limits.h"

#include <nlohmann/json.hpp>

#include "agent/plan/amounts.h"
#include "agent/plan/records_json.h"
#include "host/resources.h"

namespace agent {

std::vector<PlannedLimit> plannedLimits(const Measurement& measurement,
                                        const host::ShellVars& config) {
  // The figures bear the names of what they limit.
  const nlohmann::json figures = toJson(measurement);
  const auto measured = [&](const host::Resource& resource) -> std::string {
    const auto figure = figures.find(resource.name);
    if (figure == figures.end()) return resource.computed;
    const long long number = figure->is_number_float()
                                 ? static_cast<long long>(figure->get<double>())
                                 : figure->get<long long>();
    const std::string unit = resource.unit;
    if (unit == "KiB") return bytesText(number * 1024);
    if (unit != "pages") return countText(number);
    return countText(number) + " pages, " +
           bytesText(number * static_cast<long long>(measurement.pageSize));
  };
  std::vector<PlannedLimit> limits;
  for (const host::Resource& resource : host::resources()) {
    const std::string value = host::valueOf(config, host::recordName(resource));
    if (value.empty()) continue;
    const size_t colon = value.find(':');
    PlannedLimit limit;
    limit.name = resource.name;
    limit.unit = resource.unit;
    limit.measured = measured(resource);
    if (colon != std::string::npos) limit.soft = value.substr(0, colon);
    limit.hard = colon == std::string::npos ? value : value.substr(colon + 1);
    limits.push_back(limit);
  }
  return limits;
}

}  // namespace agent
