// Text of another machine, made fit for a terminal, a log or a file.
#ifndef QX_HOST_VISIBLE_H
#define QX_HOST_VISIBLE_H

#include <string>
#include <string_view>

namespace host {

/// Makes text that this program did not write itself harmless to show.
///
/// What could drive a terminal or pass for something else becomes visible: control
/// characters of both sets, ESC among them, and bytes that are not UTF-8 as "\xNN";
/// characters that change the direction of text, have no width or end a line, and those
/// of no meaning, as "\u{N}". A tab becomes a blank. Everything else stays, letters of
/// all scripts among it.
///
/// The first form gives one line: line feeds and carriage returns become "\n" and "\r"
/// as two characters each.
///
/// Lines are cut at `longest` bytes (never within a character), and "..." says so.
std::string visibleLine(std::string_view text, size_t longest = 1000);

/// The same for text of several lines. Every line but the first begins with `indent`, so
/// that no line of it can be taken for one of ours; of more than `most` lines the rest
/// is left out, and the last line says so. Blank lines at the end are dropped.
std::string visibleLines(std::string_view text, std::string_view indent = "    ", size_t most = 100,
                         size_t longest = 1000);

}  // namespace host

#endif
