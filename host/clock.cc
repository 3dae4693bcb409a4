#include "host/clock.h"

#include <ctime>

namespace host {

std::string utcNow() {
  const time_t now = time(nullptr);
  struct tm parts;
  char text[32];
  strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", gmtime_r(&now, &parts));
  return text;
}

std::optional<std::int64_t> parseUtc(const std::string& text) {
  struct tm parts = {};
  const char* const end = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  if (end == nullptr || *end != '\0') return std::nullopt;
  return timegm(&parts);
}

}  // namespace host
