// Which of the server's addresses the container takes over.
#ifndef QX_HWCALC_ADDRESSES_H
#define QX_HWCALC_ADDRESSES_H

#include <list>
#include <string>

#include "framework/hwnode_notes.h"
#include "hwcalc/interfaces.h"

namespace hwcalc {

/// True on a server that runs container software itself: its containers' addresses
/// are point-to-point ones.
bool runsContainers();

/// The addresses, in the order of the list (which may be null), and warnings about
/// what cannot be taken over as it is.
///
/// containers  see runsContainers; then point-to-point addresses are taken as well
std::list<std::string> chooseAddresses(const ifi_info* list, bool containers,
                                       std::list<QXA::QXACalculateHWNodeWarning>& warnings);

}  // namespace hwcalc

#endif
