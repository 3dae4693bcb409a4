#include "hwcalc/hw_calc.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <tuple>

#include "expand/strings.h"

QXHWCalc::ec_t QXHWCalc::setError(ec_t code, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(errorText, sizeof(errorText), format, arguments);
  va_end(arguments);
  return code;
}

QXHWCalc::ec_t QXHWCalc::calculate(QXA::QXAEnvConfig& config, PhysParams* params) {
  if (const ec_t code = calcPhysParams(params)) return code;
  if (const int refused = calcVPSConf(*params, config)) return static_cast<ec_t>(refused);
  return static_cast<ec_t>(tuneVPSConf(config));
}

QXHWCalc::ec_t QXHWCalc::calcPhysParams(PhysParams* params) {
  if (const ec_t code = calcProcParams(params)) return code;
  if (const ec_t code = calcQuotaUGIDLimit(params)) return code;
  std::list<QXA::QXACalculateHWNodeWarning>& warnings = params->notes.warnings;
  params->distribution = getDistribution(warnings);
  params->ip_addresses = getIPAddresses(warnings);
  char name[1024] = {};
  gethostname(name, sizeof(name) - 1);
  params->hostname = name;
  std::tie(params->nameservers, params->search_domains) = getNSAttrs(warnings);
  params->notes.excludes = calcExcludes(params, warnings);
  return EC_OK;
}

void QXHWCalc::printPhysParams(PhysParams* params) const {
  const auto joined = [](const std::list<std::string>& list) {
    return Expand::join(" ", list.begin(), list.end());
  };
  std::printf(
      "numproc: %u\n"
      "numtcpsock: %u\n"
      "numothersock: %u\n"
      "numfile: %u\n"
      "privvmpages: %u\n"
      "lockedpages: %u\n"
      "shmpages: %u\n"
      "numflock: %u\n"
      "numiptent: %u\n"
      "diskspace: %u\n"
      "diskinodes: %u\n"
      "quotaugidlimit: %u\n"
      "distribution: %s\n"
      "ip_addresses: %s\n"
      "hostname: %s\n"
      "nameservers: %s\n"
      "search_domains: %s\n",
      params->numproc, params->numtcpsock, params->numothersock, params->numfile,
      params->privvmpages, params->lockedpages, params->shmpages, params->numflock,
      params->numiptent, params->diskspace, params->diskinodes, params->quotaugidlimit,
      params->distribution.c_str(), joined(params->ip_addresses).c_str(), params->hostname.c_str(),
      joined(params->nameservers).c_str(), joined(params->search_domains).c_str());
}

std::list<QXA::QXAExcludePath> QXHWCalc::compressExcludes(
    const std::list<QXA::QXAExcludePath>&) const {
  return {};
}
