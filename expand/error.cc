#include "expand/error.h"

#include <cstdarg>
#include <cstdio>

namespace Expand {

// Each table ends with a row of number 0, which also serves for all values that
// the table does not have.
const Error::CodeRow Error::errors_[] = {
    {6000, 6, 61, "Error reading config file"},     {6001, 6, 61, "Error writing config file"},
    {6002, 6, 61, "Error parsing config file"},     {6003, 6, 62, "No such section in the config"},
    {6004, 6, 62, "No such option in the config"},  {10000, 10, 100, "Generic error"},
    {0, 0, 0, "Unknown or general internal error"},
};

const Error::DomainRow Error::domains_[] = {
    {6, "Config reader"},
    {10, "Caller"},
    {0, "Unknown error domain"},
};

Error::Error(Code code, const char* format, ...) : code_(code) {
  const CodeRow* row = errors_;
  while (row->code != 0 && row->code != code) ++row;
  domain_ = row->domain;
  category_ = row->category;
  description_ = row->description;
  what_[0] = '\0';

  va_list args;
  va_start(args, format);
  std::vsnprintf(message_, sizeof(message_), format, args);
  va_end(args);
}

const char* Error::what() const noexcept {
  const DomainRow* row = domains_;
  while (row->number != 0 && row->number != domain_) ++row;
  // Cutting a long message is no failure; only what cannot be written at all is.
  if (std::snprintf(what_, sizeof(what_), "[%s] %s. %s", row->name, description_, message_) < 0) {
    what_[0] = '\0';
  }
  return what_;
}

void ConfParserErrHandler::operator()(const Error& error) { throw error; }

ConfParserErrHandler::~ConfParserErrHandler() = default;

}  // namespace Expand
