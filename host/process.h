// Running a program and waiting for it.
#ifndef QX_HOST_PROCESS_H
#define QX_HOST_PROCESS_H

#include <string>
#include <vector>

namespace host {

/// What exec(2) takes for these words, which must outlive it: a null ends it.
std::vector<char*> pointersTo(const std::vector<std::string>& words);

/// Runs a program found on PATH with these arguments (the program first),
/// standard input empty, and waits for its end. Throws Error (kFailed) with the
/// command, how it ended and the end of what it wrote to standard error, when it
/// cannot be started or does not exit with 0. Standard output is discarded.
void runProgram(const std::vector<std::string>& arguments);

/// The same; returns what it wrote to standard output and standard error, of which the
/// last 4096 bytes, without line ends at its end.
std::string outputOf(const std::vector<std::string>& arguments);

/// The path of a program that PATH has, or the system's own folders where PATH is not set;
/// empty when it has none.
std::string findProgram(const std::string& name);

/// The path of the program that this process runs; of the new one where an upgrade has
/// replaced it meanwhile. Throws Error.
std::string ownProgram();

/// Throws Error (kFailed), which names the package to install, unless PATH has this
/// program.
void requireProgram(const char* name, const char* package);

}  // namespace host

#endif
