// A configuration in memory: sections of named options, in the order in which
// they were added. ConfParser fills and writes it.
#ifndef QX_EXPAND_CONFIG_H
#define QX_EXPAND_CONFIG_H

#include <list>
#include <string>
#include <utility>

#include "expand/export.h"

namespace Expand {

/// One option's value, a text. An option that was only looked up is undefined.
class EXPAND_API ConfigOption {
 public:
  bool defined() const { return defined_; }

  void set(const std::string& value);

  /// The value as stored; empty when the option is undefined.
  void value(std::string& text) const;

  /// The same as a C string, cut to fit `size` bytes with the terminator. A size of
  /// 0 writes nothing.
  void value(char* buf, unsigned long size) const;

  /// The value as a number (decimal) or a truth value ("true" or "false").
  ///
  /// required  whether an undefined option is an error; otherwise it leaves the
  ///           variable as it is, so that it can hold a default
  ///
  /// Throw Expand::Error CONFIG_NO_OPTION when the value is something else, or does
  /// not fit; the variable is untouched then.
  void value(long& number, bool required) const;
  void value(double& number, bool required) const;
  void value(bool& flag, bool required) const;

 private:
  /// Whether there is a value; throws when there has to be one.
  bool available(bool required) const;

  std::string text_;
  bool defined_ = false;
};

/// Options by name.
class EXPAND_API ConfigSection {
 public:
  using Options = std::list<std::pair<std::string, ConfigOption>>;

  /// Adds the option, undefined, when it is not there. References stay valid as
  /// long as the section.
  ConfigOption& operator[](const std::string& name);

  /// An undefined option when it is not there.
  const ConfigOption& operator[](const std::string& name) const;

  const Options& options() const { return options_; }

 private:
  Options options_;
};

/// Sections by name; names differ by case.
class EXPAND_API Config {
 public:
  using Sections = std::list<std::pair<std::string, ConfigSection>>;

  /// Adds the section, empty, when it is not there. References stay valid as long
  /// as the configuration.
  ConfigSection& operator[](const std::string& name);

  /// Throws Expand::Error CONFIG_NO_SECTION when it is not there.
  const ConfigSection& operator[](const std::string& name) const;

  const Sections& sections() const { return sections_; }

 private:
  Sections sections_;
};

}  // namespace Expand

#endif  // QX_EXPAND_CONFIG_H
