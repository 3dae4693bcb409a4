#include "quota/command.h"

#include <cstdarg>
#include <exception>

#include "expand/runscript.h"
#include "framework/request.h"
#include "quota/formatted.h"

namespace QuotaMgmt {

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
