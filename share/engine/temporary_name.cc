#include "share/engine/temporary_name.h"

#include <random>

namespace engine {

namespace {

constexpr std::string_view kBegin = ".qxlinmigrate-unfinished-";
constexpr std::string_view kDigits = "0123456789abcdef";
constexpr size_t kDigitCount = 24;

}  // namespace

std::string temporaryName() {
  std::random_device random;
  std::string name(kBegin);
  for (size_t i = 0; i < kDigitCount; ++i) name += kDigits[random() % kDigits.size()];
  return name;
}

bool isTemporaryName(std::string_view name) {
  return name.size() == kBegin.size() + kDigitCount && name.starts_with(kBegin) &&
         name.find_first_not_of(kDigits, kBegin.size()) == std::string_view::npos;
}

}  // namespace engine
