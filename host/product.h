// Where this installation of the product keeps what its programs share.
#ifndef QX_HOST_PRODUCT_H
#define QX_HOST_PRODUCT_H

#include <string>

namespace host {

/// "1.0.0".
std::string productVersion();

/// What stands before "/usr/local/share/qxlinmigrate", where the plug-in looks for the
/// rsync program and the detection of the distribution: empty when they are just there, or
/// a folder of a package, which must put nothing into /usr/local.
std::string productRoot();

/// The folder of the rsync program, the detection of the distribution and the bundle.
std::string productFolder();

/// Where the plug-in was installed.
std::string pluginFolder();

/// The rsync program of this installation.
std::string rsyncProgram();

/// Makes the plug-in find the files of this installation: sets QXA_TMPDIR to productRoot()
/// unless it is set. Call it before there are threads.
void offerProductFiles();

/// The folder that QXA_TMPDIR gives to an agent that was brought to a server, and which
/// goes with it; empty for one that is installed: nothing is written there.
std::string agentFolder();

}  // namespace host

#endif
