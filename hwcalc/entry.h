// The hardware calculator as an agent reaches it: one C function, found by name in
// the loaded plug-in.
#ifndef QX_HWCALC_ENTRY_H
#define QX_HWCALC_ENTRY_H

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>

#include "hwcalc/hw_calc.h"

/// How to measure; see the fields of QXHWCalc with the same meaning.
struct QXHWCalcSettings {
  std::uint32_t measureTime = 5;     ///< seconds
  std::int32_t measureInterval = 1;  ///< seconds
  float procScale = 1.0f;
  float diskScale = 1.0f;
  std::list<std::string> distScripts;
};

extern "C" {

/// Measures this machine and fills both records, as QXHWCalc::calculate does, whose
/// result it returns. What went wrong is written to errorText, NUL-terminated and
/// cut to errorSize bytes; an empty text when there is none.
__attribute__((visibility("default"))) std::uint32_t qxHWCalculate(const QXHWCalcSettings& settings,
                                                                   QXA::QXAEnvConfig& config,
                                                                   QXHWCalc::PhysParams& params,
                                                                   char* errorText,
                                                                   std::size_t errorSize);

/// Its name and type for dlsym.
typedef std::uint32_t (*QXHWCalculateFunction)(const QXHWCalcSettings&, QXA::QXAEnvConfig&,
                                               QXHWCalc::PhysParams&, char*, std::size_t);
}

inline constexpr const char* QXHWCalculateName = "qxHWCalculate";

#endif
