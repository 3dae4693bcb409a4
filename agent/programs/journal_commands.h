// qxmigrate list, show and clean.
#ifndef QX_AGENT_PROGRAMS_JOURNAL_COMMANDS_H
#define QX_AGENT_PROGRAMS_JOURNAL_COMMANDS_H

#include <optional>
#include <string>

namespace agent {

/// Whether this word is one of these commands.
bool isJournalCommand(const std::string& word);

/// Runs the command in argv[1] with the arguments behind it. Returns the exit status.
int runJournalCommand(int argc, char** argv);

}  // namespace agent

#endif
