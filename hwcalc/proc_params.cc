// Sampling the running server's counters.
#include <algorithm>
#include <ctime>
#include <string>

#include "expand/error.h"
#include "expand/runscript.h"
#include "expand/sleep.h"
#include "hwcalc/command_output.h"
#include "hwcalc/hw_calc.h"

namespace {

using Counter = std::uint32_t QXHWCalc::PhysParams::*;
using Reader = std::int32_t (*)(const std::string& output);

// A command, how to read what it prints, and the counter that this is for.
struct Measurement {
  const char* command;
  Reader read;
  Counter counter;
};

// clang-format off
constexpr Measurement kProcesses =
    {"ps ax | wc -l", hwcalc::readCount, &QXHWCalc::PhysParams::numproc};

// Intended: the header lines of the files are counted too, as in all measurements
// so far, so that these can be compared.
constexpr Measurement kBeforeMemory[] = {
    {"wc -l < /proc/net/tcp", hwcalc::readCount, &QXHWCalc::PhysParams::numtcpsock},
    {"cat /proc/net/unix /proc/net/udp /proc/net/raw | wc -l", hwcalc::readCount, &QXHWCalc::PhysParams::numothersock},
    {"ls /proc/*/fd/* | wc -l", hwcalc::readCount, &QXHWCalc::PhysParams::numfile},
};

constexpr Measurement kAfterMemory[] = {
    {"/usr/bin/ipcs -m -u", hwcalc::readAllocatedPages, &QXHWCalc::PhysParams::shmpages},
    {"wc -l < /proc/locks", hwcalc::readCount, &QXHWCalc::PhysParams::numflock},
};

// Counts of rules and routes; one counter takes the sum of both.
constexpr const char* kRules = "iptables -n -L -t filter | wc -l";
constexpr const char* kRoutes = "ip route list | wc -l";

constexpr Measurement kDisk[] = {
    {"df -k -x tmpfs", hwcalc::sumUsed, &QXHWCalc::PhysParams::diskspace},
    {"df -i -x tmpfs", hwcalc::sumUsed, &QXHWCalc::PhysParams::diskinodes},
};
// clang-format on

// Counters only grow; they compare as signed numbers.
void raise(std::uint32_t& counter, std::int32_t value) {
  if (value > static_cast<std::int32_t>(counter)) counter = static_cast<std::uint32_t>(value);
}

struct Result {
  bool succeeded;
  std::string output;
  std::string errorOutput;
};

Result run(const char* command) {
  Result result{false, "", ""};
  try {
    result.succeeded = Expand::runscript(command, result.output, result.errorOutput) == 0;
  } catch (const Expand::Error& error) {
    result.errorOutput = error.what();
  }
  return result;
}

std::int32_t countOrZero(const char* command) {
  const Result result = run(command);
  return result.succeeded ? hwcalc::readCount(result.output) : 0;
}

QXHWCalc::ec_t measure(QXHWCalc& calculator, const Measurement& what,
                       QXHWCalc::PhysParams* params) {
  const Result result = run(what.command);
  if (!result.succeeded) {
    return calculator.setError(QXHWCalc::EC_EXEC, "Error running '%s':\n%s", what.command,
                               result.errorOutput.c_str());
  }
  raise(params->*what.counter, what.read(result.output));
  return QXHWCalc::EC_OK;
}

template <typename Table>
QXHWCalc::ec_t measureAll(QXHWCalc& calculator, const Table& table, QXHWCalc::PhysParams* params) {
  for (const Measurement& what : table) {
    if (const QXHWCalc::ec_t code = measure(calculator, what, params)) return code;
  }
  return QXHWCalc::EC_OK;
}

// The sample with this number; the first is 1.
QXHWCalc::ec_t takeSample(QXHWCalc& calculator, unsigned number, QXHWCalc::PhysParams* params) {
  if (const auto code = measure(calculator, kProcesses, params)) return code;
  // Intended: the mean of the largest count so far, not of each sample's own. It
  // must stay, for the limit computed from it is then never below the true mean.
  params->avnumproc +=
      (static_cast<float>(static_cast<std::int32_t>(params->numproc)) - params->avnumproc) /
      static_cast<float>(number);
  if (const auto code = measureAll(calculator, kBeforeMemory, params)) return code;
  if (const auto code = calculator.calcMemInfo(params)) return code;
  if (const auto code = measureAll(calculator, kAfterMemory, params)) return code;
  const std::int64_t entries = std::int64_t{countOrZero(kRules)} + countOrZero(kRoutes);
  raise(params->numiptent, static_cast<std::int32_t>(std::min<std::int64_t>(entries, INT32_MAX)));
  return measureAll(calculator, kDisk, params);
}

}  // namespace

QXHWCalc::ec_t QXHWCalc::calcProcParams(PhysParams* params) {
  params->avnumproc = 0;
  const std::time_t deadline = std::time(nullptr) + static_cast<std::time_t>(measureTime);
  std::time_t interval = std::min(static_cast<std::int32_t>(measureTime), measureInterval);
  for (unsigned number = 1;; ++number) {
    if (const ec_t code = takeSample(*this, number, params)) return code;
    const std::time_t now = std::time(nullptr);
    if (now >= deadline) return EC_OK;
    interval = std::min(interval, deadline - now);
    Expand::sleep_full(static_cast<int>(interval));
  }
}
