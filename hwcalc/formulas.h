// The container's resource parameters as functions of the measurement.
//
// Pure: no state, no system. The arithmetic is part of the contract to the last
// bit: single precision stays single precision and 32-bit products wrap.
#ifndef QX_HWCALC_FORMULAS_H
#define QX_HWCALC_FORMULAS_H

#include <string>
#include <vector>

#include "framework/env_config.h"
#include "hwcalc/hw_calc.h"

namespace hwcalc {

struct Scales {
  float proc = 1.0f;  ///< for processes, sockets, memory and locks
  float disk = 1.0f;  ///< for disk space and inodes
};

/// The records in the order in which they are computed.
///
/// pageSize  the system's, in bytes
std::vector<QXL::QXLQoS> resourceRecords(const QXHWCalc::PhysParams& params, Scales scales,
                                         int pageSize);

/// Cuts "name-version" at its last "-" if a digit follows; otherwise the whole is
/// the name. Intended: a text that has no "-" but begins with a digit is both, the
/// name and the version, for the position of the missing "-" wraps to the text's
/// beginning. Configurations made so far depend on it.
QXA::QXADistribution splitDistribution(const std::string& distribution);

}  // namespace hwcalc

#endif
