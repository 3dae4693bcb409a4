// The hardware calculator: measures the running physical server and computes the
// configuration of the container that is to replace it.
//
//   QXHWCalc calculator;
//   QXHWCalc::PhysParams params;
//   if (calculator.calculate(config, &params) != QXHWCalc::EC_OK) {
//     report(calculator.errorText);
//   }
//
// One calculation at a time per object, on the caller's thread: there is only one
// errorText. Nothing but errorText is kept between calls.
#ifndef QX_HWCALC_HW_CALC_H
#define QX_HWCALC_HW_CALC_H

#include <cstdint>
#include <list>
#include <string>
#include <utility>
#include <vector>

#include "framework/env_config.h"
#include "framework/hwnode_notes.h"

class __attribute__((visibility("default"))) QXHWCalc {
 public:
  /// What became of an operation.
  enum ec_t : std::uint32_t {
    EC_OK = 0,
    EC_NETCONF = 1,  ///< the system's interfaces cannot be read
    EC_EXEC = 2,     ///< a measuring command failed
    EC_PROC = 3,     ///< /proc cannot be opened
    EC_MTAB = 4,     ///< the mount table cannot be opened
  };

  /// The raw measurement. Pass it zeroed, as it is made: counters are the largest
  /// values seen, and keep larger ones that are there already. Texts and lists are
  /// replaced, warnings appended.
  struct PhysParams {
    std::uint32_t numproc = 0;         ///< processes, as lines of "ps ax"
    float avnumproc = 0;               ///< mean of numproc over the samples
    std::uint32_t numtcpsock = 0;      ///< TCP sockets
    std::uint32_t numothersock = 0;    ///< UNIX, UDP and raw sockets
    std::uint32_t numfile = 0;         ///< open file descriptors
    std::uint32_t privvmpages = 0;     ///< pages of private virtual memory
    std::uint32_t lockedpages = 0;     ///< pages of locked memory
    std::uint32_t shmpages = 0;        ///< pages of System V shared memory allocated
    std::uint32_t numflock = 0;        ///< file locks
    std::uint32_t numiptent = 0;       ///< lines of firewall filter rules and of routes
    std::uint32_t diskspace = 0;       ///< 1024-byte blocks used on local file systems
    std::uint32_t diskinodes = 0;      ///< inodes used on local file systems
    std::uint32_t quotaugidlimit = 0;  ///< user and group ids with quotas
    std::string distribution;          ///< as "redhat-9"; empty when not detected
    std::list<std::string> ip_addresses;
    std::string hostname;
    std::list<std::string> reserved_list;  ///< carried; no step fills it
    QXA::QXACalculateHWNodeNotes notes;
    std::list<std::string> nameservers;
    std::list<std::string> search_domains;
  };

  /// The codes of warnings in PhysParams::notes.
  enum WarningCode : int {
    WARN_DISTRIBUTION = 0,        ///< not detected
    WARN_SKIPPED_INTERFACES = 1,  ///< interfaces that are down; point-to-point addresses
    WARN_SEVERAL_INTERFACES = 3,  ///< their addresses will share one interface
    WARN_REISERFS = 4,            ///< inodes in use cannot be measured
  };

  /// How long to take samples, in seconds; 0 for one sample.
  std::uint32_t measureTime = 5;
  /// Pause between two samples, in seconds. The smaller of this and measureTime is
  /// used. Each sample costs about a dozen shells: do not make it 0.
  std::int32_t measureInterval = 1;
  /// Factor for all parameters of processes, sockets, memory and locks.
  float procScale = 1.0f;
  /// Factor for disk space and inodes.
  float diskScale = 1.0f;
  /// Distribution detection scripts to try before the built-in one; paths.
  std::list<std::string> distScripts;
  /// What went wrong last; it stays until the next error.
  char errorText[4096] = {};

  /// Measures, then computes: fills `params` and writes the result into `config`.
  /// Returns EC_OK; or the code of the first measurement that failed, with
  /// errorText, params as far as they had come and config untouched; or 1 with no
  /// text when config refused the server's host name.
  ec_t calculate(QXA::QXAEnvConfig& config, PhysParams* params);

  /// Measures only. Returns EC_OK, EC_EXEC, EC_PROC or EC_MTAB.
  ec_t calcPhysParams(PhysParams* params);

  /// Writes the record to standard output, a line each; averages, notes and the
  /// reserved list are left out.
  void printPhysParams(PhysParams* params) const;

  /// Part of the interface, but has no function: always an empty list.
  std::list<QXA::QXAExcludePath> compressExcludes(
      const std::list<QXA::QXAExcludePath>& excludes) const;

  /// Formats errorText, cutting it to its size, and returns `code`.
  ec_t setError(ec_t code, const char* format, ...) __attribute__((format(printf, 3, 4)));

  // The measuring steps, in the order of calcPhysParams.

  /// Samples counters, memory and disk use for measureTime seconds.
  ec_t calcProcParams(PhysParams* params);
  /// The memory part of one sample: privvmpages and lockedpages.
  ec_t calcMemInfo(PhysParams* params);
  /// Counts the ids with quotas. Fails only when /etc/mtab cannot be opened.
  ec_t calcQuotaUGIDLimit(PhysParams* params);
  /// "name-version" as the first successful detection script prints it, or empty
  /// with a warning.
  std::string getDistribution(std::list<QXA::QXACalculateHWNodeWarning>& warnings) const;
  /// The IPv4 addresses that the container takes over.
  std::list<std::string> getIPAddresses(std::list<QXA::QXACalculateHWNodeWarning>& warnings) const;
  /// Nameservers and search domains; never warns.
  std::pair<std::list<std::string>, std::list<std::string>> getNSAttrs(
      std::list<QXA::QXACalculateHWNodeWarning>& warnings) const;
  /// The paths not to be copied. Sets diskinodes when a reiserfs is mounted, for it
  /// does not say how many inodes it has.
  std::list<QXA::QXAExcludePath> calcExcludes(
      PhysParams* params, std::list<QXA::QXACalculateHWNodeWarning>& warnings) const;

  // The computing steps.

  /// Writes the container's configuration. Returns 0, or 1 when it refused the host
  /// name; resources, distribution, addresses and interfaces are set by then.
  int calcVPSConf(const PhysParams& params, QXA::QXAEnvConfig& config);
  /// Where adjustments to a computed configuration go. There are none; returns 0.
  int tuneVPSConf(QXA::QXAEnvConfig& config);
  /// The container's network interfaces: one, with the server's addresses. Returns
  /// EC_OK, or EC_NETCONF with errorText and an empty list.
  ec_t getNetAdapters(std::list<QXA::QXACalculateHWNodeWarning>& warnings,
                      std::vector<QXA::QXANetVEth>& interfaces);

  /// `value` without its fraction, at most 2147483647. `name` is not used.
  static int check_overflow_parameter(const char* name, float value);
};

#endif
