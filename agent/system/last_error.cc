#include "agent/system/last_error.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "framework/errors.h"

namespace {
thread_local std::string lastError;
}

namespace agent {

void setLastError(const std::string& text) { lastError = text; }

int fail(const std::string& text) {
  setLastError(text);
  return -1;
}

int failErrno(const std::string& text) {
  const int number = errno;
  return fail(text + ": " + errnoText(number));
}

std::string errnoText(int number) {
  char buffer[128];
  // The GNU form: the text may be elsewhere than in the buffer.
  return strerror_r(number, buffer, sizeof buffer);
}

}  // namespace agent

namespace QXL {

const QXLErrorRow QXLErrors[] = {
    {400, "The request cannot be served: %1"},
    {404, "The agent does not know '%1'"},
    {405, "'%1' cannot be called"},
    {409, "Out of turn: %1"},
    {410, "The connection to the agent was lost%1"},
    {414, "Access denied"},
    {429, "The agent is busy: %1"},
    {499, "Cancelled"},
    {500, "The agent failed: %1"},
    {0, "Error %1"},
};

void addError(const boost::intrusive_ptr<QXLMessageIterator>& out, const QXLErrorRow* table,
              int code, const std::string& argument) {
  const QXLErrorRow* row = table;
  while (row->code != 0 && row->code != code) ++row;
  std::string text = row->text;
  const size_t place = text.find("%1");
  if (place != std::string::npos) text.replace(place, 2, argument);
  out->putError(code, text);
}

std::string getErrorMessage() { return lastError; }

int fentryExists(const std::string& path, int flags) {
  struct stat info;
  return (flags & 1 ? lstat(path.c_str(), &info) : stat(path.c_str(), &info)) == 0;
}

}  // namespace QXL
