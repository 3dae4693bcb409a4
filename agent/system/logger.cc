#include "framework/logger.h"

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>

#include "agent/system/log_level.h"
#include "host/visible.h"

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
  char text[8192];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  // A log is read on terminals, and programs of other machines have a part in it.
  fprintf(stderr, "%s\n", host::visibleLines(text).c_str());
}

}  // namespace QXL
