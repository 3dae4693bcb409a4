#include "node/resources.h"

#include <algorithm>
#include <optional>

namespace node {
namespace {

std::string kernelText(LimitScale scale, uint64_t limit) {
  const bool unlimited = limit >= kUnlimited;
  const auto number = [](uint64_t value) { return std::to_string(value); };
  // Far beyond any weight, so that products stay in range.
  const uint64_t weight = std::min<uint64_t>(limit, 1'000'000'000);
  switch (scale) {
    case LimitScale::kCount:
      return unlimited ? "max" : number(limit);
    case LimitScale::kBytes:
      return unlimited ? "-1" : number(limit);
    case LimitScale::kShares:
      return number(std::clamp<uint64_t>(weight * 1024 / 1000, 2, 262144));
    case LimitScale::kWeight:
      return number(std::clamp<uint64_t>(weight / 10, 1, 10000));
    case LimitScale::kPtys:
      return number(std::min<uint64_t>(limit, 65536));
  }
  return {};
}

std::optional<Limit> planOne(const Resource& resource, uint64_t limit, const CgroupLayout& layout) {
  const KernelLimit& kernel = resource.kernel;
  if (kernel.v1 == nullptr) return std::nullopt;
  const std::string record = recordName(resource);
  if (kernel.controller == nullptr || layout.v1.contains(kernel.controller)) {
    return Limit{record, kernel.v1, kernelText(kernel.v1Scale, limit)};
  }
  if (layout.v2.contains(kernel.controller)) {
    return Limit{record, kernel.v2, kernelText(kernel.v2Scale, limit)};
  }
  return std::nullopt;
}

}  // namespace

ResourcePlan planResources(const Container& container, const CgroupLayout& layout) {
  ResourcePlan plan;
  for (const Resource& resource : resources()) {
    const std::string record = recordName(resource);
    const std::optional<ResourceValue> value = recordOf(container, record);
    if (!value || resource.holder == Holder::kQuota) continue;
    if (std::optional<Limit> limit = planOne(resource, value->limit, layout)) {
      plan.limits.push_back(std::move(*limit));
    } else if (resource.holder == Holder::kKernel || value->limit < kUnlimited) {
      // No limit at all is nothing that could fail to be enforced.
      plan.unenforced.push_back(record);
    }
  }
  return plan;
}

}  // namespace node
