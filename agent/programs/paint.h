// Colours on terminals.
#ifndef QX_AGENT_PROGRAMS_PAINT_H
#define QX_AGENT_PROGRAMS_PAINT_H

#include <cstdio>
#include <string>
#include <string_view>

namespace agent {

/// kAuto: where a terminal is written to that is not TERM=dumb, unless the variable NO_COLOR
/// has a value.
enum class Painting { kAuto, kAlways, kNever };

/// For the whole program, as long as it has one thread; kAuto before.
void choosePainting(Painting painting);

enum class Tone { kGood, kCaution, kBad };

/// The text, coloured if what is written to `fd` is to be.
std::string painted(std::string_view text, Tone tone, int fd);

/// Writes a text to the stream, where marks at the beginnings of lines, such as "BLOCKED",
/// are coloured if it is to be, and to the log (see log_file.h), where they are not.
void present(const std::string& text, FILE* stream);

}  // namespace agent

#endif
