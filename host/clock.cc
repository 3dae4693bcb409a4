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

}  // namespace host
