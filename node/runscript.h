// Running a script of the host's inside a container that is not running.
#ifndef QX_NODE_RUNSCRIPT_H
#define QX_NODE_RUNSCRIPT_H

#include <string>
#include <vector>

#include "host/container.h"
#include "node/host.h"

namespace node {

/// How a script is started: the words of its "#!" line, or "/bin/sh" when it
/// has none. As the kernel has it, at most one argument follows the program.
/// Throws Error (kFailed) when there is a "#!" without an absolute path.
std::vector<std::string> scriptInterpreter(const std::string& script);

/// The script's whole environment, "NAME=value" each: PATH, HOME, VEID, and
/// those of HOSTNAME, IP_ADDRESS, NETIF, NAMESERVER, SEARCHDOMAIN and
/// DISTRIBUTION that the configuration sets.
std::vector<std::string> scriptEnvironment(const Container& container);

/// Runs the script file of the host with the container's tree as its root and
/// returns its exit status, 128 plus the signal's number when a signal ended it.
///
/// The script is handed in as a file of a private /dev, so nothing of it stays.
/// It runs as root in mount, pid, uts, ipc and network namespaces of its own,
/// with a private read-only /proc and a /dev of null, zero, full, random,
/// urandom and tty, and without the capabilities by which root reaches past
/// namespaces. Standard output and error are this process's, standard input is
/// empty. When it ends, whatever it left running is killed; so is everything
/// when this process dies.
///
/// Throws Error when the script could not be run: kNotFound for a missing script
/// or tree, kBusy when the container is running.
int runScript(const Container& container, const std::string& scriptPath);

}  // namespace node

#endif
