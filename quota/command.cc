#include "quota/command.h"

#include <cstdarg>
#include <cstdio>
#include <exception>

#include "expand/runscript.h"
#include "framework/request.h"

namespace QuotaMgmt {

namespace {

__attribute__((format(printf, 1, 0))) std::string formattedList(const char* format,
                                                                va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, again);
  va_end(again);
  std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, arguments);
  return text;
}

}  // namespace

std::string formatted(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string text = formattedList(format, arguments);
  va_end(arguments);
  return text;
}

int fail(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string text = formattedList(format, arguments);
  va_end(arguments);
  QXL::QXLRequestContextPrototype::getCurrent()->setLastError(-1, text);
  return -1;
}

int runCommand(const std::string& command, CommandResult& result) {
  try {
    result.exitCode = Expand::runscript(command, result.output, result.errorOutput);
  } catch (const std::exception& error) {
    return fail("%s", error.what());
  }
  return 0;
}

int failCommand(const std::string& command, const CommandResult& result) {
  return fail("Error running '%s':\n%s", command.c_str(), result.errorOutput.c_str());
}

int runChecked(const std::string& command, std::string* output) {
  CommandResult result;
  if (runCommand(command, result) != 0) return -1;
  if (result.exitCode != 0) return failCommand(command, result);
  if (output) *output += result.output;
  return 0;
}

}  // namespace QuotaMgmt
