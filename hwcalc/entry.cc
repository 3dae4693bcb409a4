#include "hwcalc/entry.h"

#include <cstdio>

std::uint32_t qxHWCalculate(const QXHWCalcSettings& settings, QXA::QXAEnvConfig& config,
                            QXHWCalc::PhysParams& params, char* errorText, std::size_t errorSize) {
  QXHWCalc calculator;
  calculator.measureTime = settings.measureTime;
  calculator.measureInterval = settings.measureInterval;
  calculator.procScale = settings.procScale;
  calculator.diskScale = settings.diskScale;
  calculator.distScripts = settings.distScripts;
  const std::uint32_t result = calculator.calculate(config, &params);
  if (errorSize > 0) std::snprintf(errorText, errorSize, "%s", calculator.errorText);
  return result;
}
