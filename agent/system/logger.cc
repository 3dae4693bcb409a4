#include "framework/logger.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>

#include "agent/system/log_file.h"
#include "agent/system/log_level.h"
#include "host/text.h"
#include "host/visible.h"

namespace {
std::mutex mutex;
int shownLevel = 1;
constexpr int kInformation = 3;
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
  const bool shown = level <= shownLevel;
  // A file has room for more, and is read when it is too late to ask for it.
  const bool kept = agent::hasLogFile() && level <= std::max(shownLevel, kInformation);
  if (!shown && !kept) return;
  char given[8192];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(given, sizeof given, format, arguments);
  va_end(arguments);
  // A log is read on terminals, and programs of other machines have a part in it.
  const std::string text = host::textf("%d %s %s %s: %s", level, plugin, source, function,
                                       host::visibleLines(given).c_str());
  if (kept) agent::writeLog(text);
  if (!shown) return;
  const time_t now = time(nullptr);
  tm local;
  localtime_r(&now, &local);
  char stamp[32];
  strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S", &local);
  fprintf(stderr, "%s %s\n", stamp, text.c_str());
}

}  // namespace QXL
