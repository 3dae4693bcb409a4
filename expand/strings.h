// Small operations on strings and version numbers. None of them keeps state;
// all may be called from any thread.
#ifndef QX_EXPAND_STRINGS_H
#define QX_EXPAND_STRINGS_H

#include <cstddef>
#include <string>
#include <vector>

#include "expand/export.h"

namespace Expand {

/// Removes blanks, tabs, CR and LF from both ends of `s`.
EXPAND_API void strip(std::string& s);

/// Makes each run of blanks, tabs, CR and LF inside `s` one blank, and removes
/// them from both ends.
EXPAND_API void collapse(std::string& s);

/// Cuts `s` at each character that occurs in `separators`. Adjacent separators
/// have an empty piece between them, and a separator at either end has one
/// outside it: a text with n separators gives n + 1 pieces, the empty text one.
///
/// limit  at most so many pieces, the last one holding the rest uncut; 0 (or
///        less) for no limit
EXPAND_API std::vector<std::string> split(const char* separators, const std::string& s, int limit);

/// The words of a null-terminated argument vector with single blanks between
/// them, for messages; not quoted, so not for a shell.
EXPAND_API std::string join_argv(const char* const* argv);

/// The strings of a range with `separator` between them.
template <typename Iterator>
std::string join(const char* separator, Iterator first, Iterator last) {
  std::string joined;
  for (Iterator it = first; it != last; ++it) {
    if (it != first) joined += separator;
    joined += *it;
  }
  return joined;
}

/// Replaces every occurrence of `from` in `s` by `to`; what was put in is not
/// searched again. An empty `from` changes nothing.
EXPAND_API void replace(std::string& s, const char* from, const char* to);

/// Position of the first occurrence of `needle` in `hay` regardless of the case
/// of ASCII letters, or std::string::npos.
EXPAND_API std::size_t icase_strstr(const std::string& hay, const std::string& needle);

/// "true" or "false"; static storage.
EXPAND_API const char* btoa(bool b);

/// True when `s` is "true" in any case; everything else is false.
EXPAND_API bool atob(const char* s);

/// True when `s`, without quotes in a command line, reaches the command as one word: it
/// is not empty and holds neither blanks nor control characters nor what a shell acts
/// on. Wildcards do not count, for some commands are given them on purpose.
bool is_shell_word(const std::string& s);

/// Text of a version packed one byte per component, the last component lowest:
/// 0x020612 is "2.6.18". Four components from 0x1000000, three from 0x10000,
/// otherwise two.
EXPAND_API std::string ver2str(unsigned v);

/// The inverse of ver2str: 0 unless `s` has two to four components. A component
/// above 255 is not refused: its upper bits go into the byte above.
EXPAND_API unsigned str2ver(const char* s);

}  // namespace Expand

#endif  // QX_EXPAND_STRINGS_H
