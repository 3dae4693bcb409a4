// The automaton of the configuration parser: its tables, and its run over the
// text. Reading and writing files is in conf_parser.cc.
#include "expand/conf_parser.h"
#include "expand/strings.h"

namespace Expand {

const char* const ConfParser::err_msgs[5] = {
    "']' expected",      "'=' or ':' expected",   "input string is too long (token buffer is full)",
    "unexpected symbol", "section name expected",
};

// clang-format off
const ConfParser::Transition ConfParser::dfa_[9][8] = {
    //                  EOL      #       [       ]       blank   = :     word    other
    /* comment      */ {{7, 0},  {0, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 0}},
    /* after [      */ {{7, 4},  {8, 4}, {8, 4}, {8, 4}, {1, 0}, {8, 4}, {2, 5}, {8, 4}},
    /* section name */ {{7, 1},  {8, 1}, {8, 1}, {7, 6}, {3, 6}, {8, 1}, {2, 5}, {8, 1}},
    /* after name   */ {{7, 1},  {8, 1}, {8, 1}, {7, 0}, {3, 0}, {8, 1}, {8, 1}, {8, 1}},
    /* option name  */ {{7, 2},  {8, 2}, {8, 2}, {8, 2}, {5, 8}, {6, 8}, {4, 7}, {8, 2}},
    /* after option */ {{7, 2},  {8, 2}, {8, 2}, {8, 2}, {5, 0}, {6, 0}, {8, 2}, {8, 2}},
    /* value        */ {{7, 10}, {6, 9}, {6, 9}, {6, 9}, {6, 9}, {6, 9}, {6, 9}, {6, 9}},
    /* line start   */ {{7, 0},  {0, 0}, {1, 0}, {8, 3}, {7, 0}, {8, 3}, {4, 7}, {8, 3}},
    /* error        */ {{7, 0},  {8, 0}, {8, 0}, {8, 0}, {8, 0}, {8, 0}, {8, 0}, {8, 0}},
};
// clang-format on

int ConfParser::getCharClass(char c) {
  switch (c) {
    case '\n':
    case '\r':
      return EOL;
    case '#':
      return COMMENT;
    case '[':
      return OPEN;
    case ']':
      return CLOSE;
    case ' ':
    case '\t':
      return BLANK;
    case '=':
    case ':':
      return ASSIGN;
    case '_':
    case '.':
    case '-':
      return WORD;
    default:
      // Of ASCII only, whatever the locale of the process.
      return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ? WORD
                                                                                        : OTHER;
  }
}

void ConfParser::parse(Config& config) {
  if (!readSource()) return;
  start(config);
  while (position_ < text_.size()) step(config, text_[position_]);
  // A last line without a line end is a line like the others.
  if (state_ != LINE_START) step(config, '\n');
}

void ConfParser::start(Config& config) {
  position_ = 0;
  line_ = 1;
  column_ = 1;
  state_ = LINE_START;
  tokenSize_ = 0;
  optionName_.clear();
  section_ = &config["GLOBAL"];
}

void ConfParser::step(Config& config, char c) {
  const Transition& transition = dfa_[state_][getCharClass(c)];
  state_ = transition.next;
  perform(config, transition.action, c);
}

// Also advances the position: for errors, handleError does.
void ConfParser::perform(Config& config, int action, char c) {
  switch (action) {
    case REPORT_CLOSE:
      return handleError(CLOSE_EXPECTED);
    case REPORT_ASSIGN:
      return handleError(ASSIGN_EXPECTED);
    case REPORT_SYMBOL:
      return handleError(UNEXPECTED_SYMBOL);
    case REPORT_NAME:
      return handleError(NAME_EXPECTED);
    case APPEND_SECTION:
    case APPEND_OPTION:
    case APPEND_VALUE:
      return append(c);
    case END_SECTION:
      section_ = &config[takeToken()];
      break;
    case END_OPTION:
      optionName_ = takeToken();
      break;
    case END_VALUE: {
      std::string value = takeToken();
      strip(value);
      (*section_)[optionName_].set(value);
      break;
    }
    default:
      break;
  }
  incPos();
}

void ConfParser::append(char c) {
  if (tokenSize_ == sizeof(token_) - 1) {
    state_ = SKIP_LINE;
    return handleError(TOKEN_TOO_LONG);
  }
  token_[tokenSize_++] = c;
  incPos();
}

std::string ConfParser::takeToken() {
  std::string token(token_, tokenSize_);
  tokenSize_ = 0;
  return token;
}

void ConfParser::incPos() {
  // The line end that parse() adds is not in the text.
  const bool lineEnd = position_ < text_.size() && text_[position_] == '\n';
  ++position_;
  if (lineEnd) {
    ++line_;
    column_ = 1;
  } else {
    ++column_;
  }
}

void ConfParser::handleError(Error e) {
  const int line = line_;
  const int column = column_;
  // The line is given up, and with it what was read of a name.
  tokenSize_ = 0;
  incPos();
  (*handler_)(
      Expand::Error(Expand::Error::CONFIG_PARSE, "line %d, col %d: %s", line, column, err_msgs[e]));
}

}  // namespace Expand
