// Reads and writes configuration files of sections and options:
//
//   # before the first header, options belong to the section GLOBAL
//   POST_MIGRATE=debian.sh
//   [limits]
//   depth: 12
//
//   Config config;
//   ConfParser parser;
//   parser.init(ConfParser::FROM_FILE, "/etc/sysconfig/example.conf");
//   parser.parse(config);
//
// A comment stands on a line of its own: in a value, "#" is part of the value. An
// option name ends at a blank or at "=" or ":"; the value is the rest of the line.
// It is stored without the blanks and tabs around it, as people write "a = b".
// Behind the "]" of a header the line goes on as a new one would. A section that
// appears again is continued, and an option that does replaces the earlier value.
#ifndef QX_EXPAND_CONF_PARSER_H
#define QX_EXPAND_CONF_PARSER_H

#include <cstddef>
#include <string>

#include "expand/config.h"
#include "expand/error.h"
#include "expand/export.h"

namespace Expand {

/// One parser may be used for several texts, one after another.
class EXPAND_API ConfParser {
 public:
  enum Method { FROM_FILE = 0, FROM_STRING = 1 };

  /// What a syntax error is about; indexes err_msgs.
  enum Error {
    CLOSE_EXPECTED = 0,
    ASSIGN_EXPECTED = 1,
    TOKEN_TOO_LONG = 2,
    UNEXPECTED_SYMBOL = 3,
    NAME_EXPECTED = 4,
  };
  static const char* const err_msgs[5];

  /// handler  receives each problem; not owned, and must outlive the parser. Null
  ///          for one that throws.
  explicit ConfParser(ConfParserErrHandler* handler = nullptr);
  ConfParser(const ConfParser&) = delete;
  ConfParser& operator=(const ConfParser&) = delete;

  /// Says what to parse.
  ///
  /// source  the text itself, or the path of a file that parse() will read
  void init(Method method, const std::string& source);

  /// Parses into `config`, adding to what is there. The end of the text ends the
  /// last line also when it has no line end.
  ///
  /// Problems go to the handler as Expand::Error: CONFIG_READ when the file cannot
  /// be read (nothing is parsed then), CONFIG_PARSE with line and column, both from
  /// 1, of the character that cannot stand there; with a handler that returns, the
  /// rest of that line is skipped. An error at a line end is reported at the
  /// character that ends the line.
  void parse(Config& config);

  /// Writes `config` as a text that parse() understands: a header line for each
  /// section, but for a first one named "global" in any case, and a line for each
  /// defined option. A line end inside a name or value is not escaped.
  ///
  /// target  receives the text, or is the path of a file to write (created with
  ///         mode 0644, or overwritten)
  ///
  /// Problems go to the handler as Expand::Error CONFIG_WRITE.
  void save(Method method, const Config& config, std::string& target);

 protected:
  enum CharClass { EOL, COMMENT, OPEN, CLOSE, BLANK, ASSIGN, WORD, OTHER };
  enum State {
    IN_COMMENT,
    AFTER_OPEN,
    IN_SECTION_NAME,
    AFTER_SECTION_NAME,
    IN_OPTION_NAME,
    AFTER_OPTION_NAME,
    IN_VALUE,
    LINE_START,
    SKIP_LINE,
  };
  enum Action {
    NOTHING,
    REPORT_CLOSE,
    REPORT_ASSIGN,
    REPORT_SYMBOL,
    REPORT_NAME,
    APPEND_SECTION,
    END_SECTION,
    APPEND_OPTION,
    END_OPTION,
    APPEND_VALUE,
    END_VALUE,
  };
  struct Transition {
    int next;
    int action;
  };

  /// What each state does with each class of characters.
  static const Transition dfa_[9][8];
  static int getCharClass(char c);

 private:
  bool report(const Expand::Error& error);  ///< always false
  bool readSource();
  void start(Config& config);
  void step(Config& config, char c);
  void perform(Config& config, int action, char c);
  void append(char c);
  std::string takeToken();
  void incPos();
  void handleError(Error e);

  ConfParserErrHandler* handler_;
  Method method_ = FROM_STRING;
  std::string source_;  ///< the text, or the path of the file
  std::string text_;    ///< the input
  std::size_t position_ = 0;
  int line_ = 1;
  int column_ = 1;
  int state_ = LINE_START;
  char token_[4096];  ///< of which the last stays free for a terminator
  std::size_t tokenSize_ = 0;
  std::string optionName_;
  ConfigSection* section_ = nullptr;
};

}  // namespace Expand

#endif  // QX_EXPAND_CONF_PARSER_H
