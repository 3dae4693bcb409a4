#include "quota/formatted.h"

#include <cstdio>

namespace QuotaMgmt {

std::string formattedList(const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  // The analyzer does not see that va_copy has initialised it.
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
  const int length = std::vsnprintf(nullptr, 0, format, again);
  va_end(again);
  std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, arguments);
  return text;
}

std::string formatted(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string text = formattedList(format, arguments);
  va_end(arguments);
  return text;
}

}  // namespace QuotaMgmt
