// The mark that this process puts on what it starts and makes, so that the next one can
// tell what a dead one has left.
#ifndef QX_HOST_PROCESS_MARK_H
#define QX_HOST_PROCESS_MARK_H

#include <string>

namespace host {

/// The variable in the environment of every program that is started; its value is
/// processWord of the process that started it.
inline constexpr char kProcessVariable[] = "QX_MIGRATE_PROCESS";

/// The names of folders for temporary files in /tmp begin with this, that word and a dot.
inline constexpr char kTemporaryPrefix[] = "qxmigrate.";

/// Puts the variable into this process's environment. To be called before there are
/// threads. Does nothing where /proc does not tell who this process is.
void markPrograms();

/// The template, for mkdtemp, of a folder for temporary files.
std::string temporaryFolderTemplate();

}  // namespace host

#endif
