// printf into a string.
#ifndef QX_QUOTA_FORMATTED_H
#define QX_QUOTA_FORMATTED_H

#include <cstdarg>
#include <string>

namespace QuotaMgmt {

/// A printf-formatted string of any length.
std::string formatted(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string formattedList(const char* format, va_list arguments)
    __attribute__((format(printf, 1, 0)));

}  // namespace QuotaMgmt

#endif
