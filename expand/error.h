// The one exception type of the utility library, and the handler through which
// the configuration parser reports its problems.
#ifndef QX_EXPAND_ERROR_H
#define QX_EXPAND_ERROR_H

#include <cstddef>
#include <cstdint>
#include <exception>

#include "expand/export.h"

namespace Expand {

/// A failure: a code of the fixed code table, the domain, category and
/// description that the table gives for it, and a message of the thrower.
///
/// An Error is a value without heap memory; it can be made and read when memory
/// has run out. what() writes into the object: do not call it on one object from
/// two threads at once.
class EXPAND_API Error : public std::exception {
 public:
  enum Code : std::uint32_t {
    NONE = 0,
    CONFIG_READ = 6000,        ///< a configuration file cannot be opened or read
    CONFIG_WRITE = 6001,       ///< a configuration file cannot be written
    CONFIG_PARSE = 6002,       ///< a configuration text has a syntax error
    CONFIG_NO_SECTION = 6003,  ///< a section was looked up that is not there
    CONFIG_NO_OPTION = 6004,   ///< an option is undefined, or not of the type asked for
    CALLER_GENERIC = 10000,    ///< a program could not be started or watched
  };

  /// Size of the two text buffers, in bytes; longer texts are cut.
  static constexpr std::size_t kTextSize = 4096;

  /// code    a value of the table; any other value is taken, and described as
  ///         unknown with domain and category 0
  /// format  of the message, as for printf; cut at kTextSize - 1 characters
  Error(Code code, const char* format, ...) __attribute__((format(printf, 3, 4)));

  /// "[domain name] description. message", cut at kTextSize - 1 characters. The
  /// text belongs to this object and is made anew by each call.
  const char* what() const noexcept override;

  Code code() const { return code_; }
  std::uint32_t domain() const { return domain_; }
  std::uint32_t category() const { return category_; }

 private:
  struct CodeRow {
    std::uint32_t code;
    std::uint32_t domain;
    std::uint32_t category;
    const char* description;
  };
  struct DomainRow {
    std::uint32_t number;
    const char* name;
  };
  static const CodeRow errors_[];
  static const DomainRow domains_[];

  Code code_;
  std::uint32_t domain_;
  std::uint32_t category_;
  mutable char what_[kTextSize];
  const char* description_;
  char message_[kTextSize];
};

/// Receives each problem that the configuration parser finds. This one throws a
/// copy of the error. A handler of your own may note the error and return; the
/// parser then goes on as far as it can.
class EXPAND_API ConfParserErrHandler {
 public:
  virtual void operator()(const Error& error);
  virtual ~ConfParserErrHandler();
};

}  // namespace Expand

#endif  // QX_EXPAND_ERROR_H
