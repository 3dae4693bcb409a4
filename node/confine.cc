#include "node/confine.h"

#include <linux/capability.h>

#include <array>

#include "host/confine.h"

namespace node {
namespace {

/// What a script that edits a system's files needs: their owners and modes, set-id bits
/// and capabilities of files, running a program as one of the system's users, in a root
/// below its own.
constexpr std::array kKeptCapabilities{CAP_CHOWN,  CAP_DAC_OVERRIDE, CAP_FOWNER,  CAP_FSETID,
                                       CAP_SETUID, CAP_SETGID,       CAP_SETFCAP, CAP_SYS_CHROOT};

}  // namespace

void confine() { host::confine(kKeptCapabilities, host::Use::kPrograms); }

}  // namespace node
