#include "framework/logger.h"

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>

#include "agent/system/log_level.h"

namespace {
std::mutex mutex;
int shownLevel = 1;
}  // namespace

namespace agent {
void setLogLevel(int level) {
  std::lock_guard lock(mutex);
  shownLevel = level;
}
}  // namespace agent

namespace QXL {

void logMessage(int level, const char* plugin, const char* source, const char* function,
                const char* format, ...) {
  std::lock_guard lock(mutex);
  if (level > shownLevel) return;
  const time_t now = time(nullptr);
  tm local;
  localtime_r(&now, &local);
  char stamp[32];
  strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S", &local);
  fprintf(stderr, "%s %d %s %s %s: ", stamp, level, plugin, source, function);
  va_list arguments;
  va_start(arguments, format);
  vfprintf(stderr, format, arguments);
  va_end(arguments);
  fputc('\n', stderr);
}

}  // namespace QXL
