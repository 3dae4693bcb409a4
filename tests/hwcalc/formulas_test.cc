#include "hwcalc/formulas.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <string>

namespace {

constexpr long long UNLIMITED = 9223372036854775807;

// What a server that measures next to nothing gets, with 4096-byte pages.
QXHWCalc::PhysParams idle() { return {}; }

std::map<std::string, QXL::QXLQoS> records(const QXHWCalc::PhysParams& params,
                                           hwcalc::Scales scales = {}) {
  std::map<std::string, QXL::QXLQoS> byName;
  for (const QXL::QXLQoS& qos : hwcalc::resourceRecords(params, scales, 4096)) {
    byName[qos.name] = qos;
  }
  return byName;
}

std::string pairOf(const QXHWCalc::PhysParams& params, const std::string& name,
                   hwcalc::Scales scales = {}) {
  const QXL::QXLQoS qos = records(params, scales).at(name);
  if (!qos.barrierPresent) return std::to_string(qos.limit);
  return std::to_string(qos.barrier) + ":" + std::to_string(qos.limit);
}

}  // namespace

TEST(Saturation, TruncatesTowardZero) {
  EXPECT_EQ(QXHWCalc::check_overflow_parameter("numproc", 1.9f), 1);
  EXPECT_EQ(QXHWCalc::check_overflow_parameter("numproc", -1.9f), -1);
  EXPECT_EQ(QXHWCalc::check_overflow_parameter("numproc", 0.0f), 0);
}

TEST(Saturation, LargestFloatBelowTheRangeEndStays) {
  EXPECT_EQ(QXHWCalc::check_overflow_parameter("", std::nextafter(2147483648.0f, 0.0f)),
            2147483520);
}

TEST(Saturation, EverythingFromTheRangeEndOnIsTheLargestNumber) {
  EXPECT_EQ(QXHWCalc::check_overflow_parameter("", 2147483648.0f), 2147483647);
  EXPECT_EQ(QXHWCalc::check_overflow_parameter("", 1e30f), 2147483647);
  EXPECT_EQ(QXHWCalc::check_overflow_parameter("", std::numeric_limits<float>::infinity()),
            2147483647);
  EXPECT_EQ(QXHWCalc::check_overflow_parameter("", std::nanf("")), 2147483647);
}

TEST(Saturation, ValuesBelowTheRangeGiveWhatTheProcessorMakesOfThem) {
  EXPECT_EQ(QXHWCalc::check_overflow_parameter("", -1e30f), std::numeric_limits<int>::min());
}

TEST(Resources, RecordsComeInTheOrderOfTheComputation) {
  std::string names;
  for (const QXL::QXLQoS& qos : hwcalc::resourceRecords(idle(), {}, 4096)) names += qos.name + " ";
  EXPECT_EQ(names,
            "numproc avnumproc numtcpsock numothersock numpty numfile dcachesize kmemsize "
            "tcpsndbuf tcprcvbuf othersockbuf dgramrcvbuf vmguarpages privvmpages oomguarpages "
            "lockedpages shmpages physpages numflock numsiginfo numiptent diskspace diskinodes "
            "cpuunits quotatime quotaugidlimit slmmemorylimit ");
}

// Each expected value is worked out by hand from the formula of its row.
TEST(Resources, IdleServerGetsEveryMinimum) {
  EXPECT_EQ(pairOf(idle(), "numproc"), "240:240");
  EXPECT_EQ(pairOf(idle(), "avnumproc"), "180:180");
  EXPECT_EQ(pairOf(idle(), "numtcpsock"), "80:80");
  EXPECT_EQ(pairOf(idle(), "numothersock"), "80:80");
  EXPECT_EQ(pairOf(idle(), "numpty"), "255:255");
  EXPECT_EQ(pairOf(idle(), "numfile"), "9312:9312");
  EXPECT_EQ(pairOf(idle(), "dcachesize"), "3933388:3933388");  // 9312 * 384 * 1.1
  EXPECT_EQ(pairOf(idle(), "kmemsize"), "18678988:18678988");  // 240 * 61440 + 3933388
  EXPECT_EQ(pairOf(idle(), "tcpsndbuf"), "5038080:5242880");   // 80 * 65536, less 80 * 2560
  EXPECT_EQ(pairOf(idle(), "tcprcvbuf"), "5038080:5242880");
  EXPECT_EQ(pairOf(idle(), "othersockbuf"), "5038080:5242880");
  EXPECT_EQ(pairOf(idle(), "dgramrcvbuf"), "262144:262144");
  EXPECT_EQ(pairOf(idle(), "vmguarpages"), "0:" + std::to_string(UNLIMITED));
  EXPECT_EQ(pairOf(idle(), "privvmpages"), "65536:72089");
  EXPECT_EQ(pairOf(idle(), "oomguarpages"), "0:" + std::to_string(UNLIMITED));
  EXPECT_EQ(pairOf(idle(), "lockedpages"), "256:256");
  EXPECT_EQ(pairOf(idle(), "shmpages"), "21504:21504");
  EXPECT_EQ(pairOf(idle(), "physpages"), "0:" + std::to_string(UNLIMITED));
  EXPECT_EQ(pairOf(idle(), "numflock"), "188:206");
  EXPECT_EQ(pairOf(idle(), "numsiginfo"), "256:256");
  EXPECT_EQ(pairOf(idle(), "numiptent"), "128:128");
  EXPECT_EQ(pairOf(idle(), "diskspace"), "0:0");
  EXPECT_EQ(pairOf(idle(), "diskinodes"), "0:0");
  EXPECT_EQ(pairOf(idle(), "cpuunits"), "1000");
  EXPECT_EQ(pairOf(idle(), "quotatime"), "0");
  EXPECT_EQ(pairOf(idle(), "quotaugidlimit"), "0");
  // 18678988 + 2 * 5242880 + 5242880 + 262144 + 4096 * 72089 + 4096 * 256, each step
  // rounded to 24 bits.
  EXPECT_EQ(pairOf(idle(), "slmmemorylimit"), "330994880:330994880");
}

TEST(Resources, MeasuredValuesAboveTheMinimumsAreTaken) {
  QXHWCalc::PhysParams params;
  params.numproc = 1000;
  params.avnumproc = 900.75f;
  params.numtcpsock = 500;
  params.numothersock = 600;
  params.numfile = 20000;
  params.privvmpages = 1000000;
  params.lockedpages = 1000;
  params.shmpages = 50000;
  params.numflock = 1000;
  params.numiptent = 300;
  params.diskspace = 1000000;
  params.diskinodes = 200000;
  EXPECT_EQ(pairOf(params, "numproc"), "1000:1000");
  EXPECT_EQ(pairOf(params, "avnumproc"), "900:900");
  EXPECT_EQ(pairOf(params, "numtcpsock"), "500:500");
  EXPECT_EQ(pairOf(params, "numothersock"), "600:600");
  EXPECT_EQ(pairOf(params, "numfile"), "28824:28824");  // 900.75 * 32, above 20000
  EXPECT_EQ(pairOf(params, "privvmpages"), "1000000:1100000");
  EXPECT_EQ(pairOf(params, "lockedpages"), "1000:1000");
  EXPECT_EQ(pairOf(params, "shmpages"), "50000:50000");
  EXPECT_EQ(pairOf(params, "numflock"), "1000:1100");
  EXPECT_EQ(pairOf(params, "numiptent"), "300:300");
  EXPECT_EQ(pairOf(params, "diskspace"), "1000000:1100000");
  EXPECT_EQ(pairOf(params, "diskinodes"), "200000:220000");
  EXPECT_EQ(pairOf(params, "tcpsndbuf"), "31488000:32768000");
  EXPECT_EQ(pairOf(params, "othersockbuf"), "37785600:39321600");
}

TEST(Resources, TenProcessesGetTheMinimumOfProcesses) {
  QXHWCalc::PhysParams params;
  params.numproc = 10;
  EXPECT_EQ(pairOf(params, "numproc"), "240:240");
}

TEST(Resources, MinimumsOfCountsAreScaledToo) {
  QXHWCalc::PhysParams params;
  params.numproc = 10;
  EXPECT_EQ(pairOf(params, "numproc", {.proc = 0.5f}), "120:120");
}

TEST(Resources, MinimumOfPrivateMemoryComesAfterScaling) {
  QXHWCalc::PhysParams params;
  params.privvmpages = 100000;
  EXPECT_EQ(pairOf(params, "privvmpages", {.proc = 0.5f}), "65536:72089");
}

TEST(Resources, MinimumOfTheProcessMeanComesAfterScaling) {
  QXHWCalc::PhysParams params;
  params.avnumproc = 200;
  EXPECT_EQ(pairOf(params, "avnumproc", {.proc = 0.5f}), "180:180");
}

TEST(Resources, SharedMemoryHasASecondMinimumAfterScaling) {
  EXPECT_EQ(pairOf(idle(), "shmpages", {.proc = 0.01f}), "1024:1024");
  EXPECT_EQ(pairOf(idle(), "shmpages", {.proc = 0.05f}), "1075:1075");
}

TEST(Resources, DiskFactorIsForDiskOnly) {
  QXHWCalc::PhysParams params;
  params.diskspace = 1000;
  params.diskinodes = 100;
  EXPECT_EQ(pairOf(params, "diskspace", {.disk = 2.5f}), "2500:2750");
  EXPECT_EQ(pairOf(params, "diskinodes", {.disk = 2.5f}), "250:275");
  EXPECT_EQ(pairOf(params, "numproc", {.disk = 2.5f}), "240:240");
  EXPECT_EQ(pairOf(params, "diskspace", {.proc = 2.5f}), "1000:1100");
}

TEST(Resources, QuotaIdsAreDoubledWithAMinimum) {
  for (const auto& [measured, limit] : std::map<unsigned, std::string>{
           {0, "0"}, {1, "1024"}, {100, "1024"}, {512, "1024"}, {513, "1026"}, {3000, "6000"}}) {
    QXHWCalc::PhysParams params;
    params.quotaugidlimit = measured;
    EXPECT_EQ(pairOf(params, "quotaugidlimit"), limit) << measured;
  }
}

TEST(Resources, ProductsBeyondTheRangeGiveTheLargestNumber) {
  QXHWCalc::PhysParams params;
  params.numproc = 1u << 20;
  EXPECT_EQ(pairOf(params, "numproc", {.proc = 2048.0f}), "2147483647:2147483647");
  params.numtcpsock = 1u << 15;  // 65536 bytes each
  EXPECT_EQ(records(params).at("tcpsndbuf").limit, 2147483647);
}

TEST(Resources, OpenFilesCoverSocketsAndTerminals) {
  QXHWCalc::PhysParams params;
  params.numtcpsock = 10000;
  params.numothersock = 20000;
  EXPECT_EQ(pairOf(params, "numfile"), "30255:30255");
}

TEST(Resources, CountersAreReadAsSigned) {
  QXHWCalc::PhysParams params;
  params.numproc = 4294967295u;  // -1, below the minimum
  params.diskspace = 4294967295u;
  EXPECT_EQ(pairOf(params, "numproc"), "240:240");
  EXPECT_EQ(pairOf(params, "diskspace"), "-1:-1");
}

// Intended, see the comment at the formula: the cap wraps to a huge number.
TEST(Resources, MemoryLimitHasACapThatNeverBinds) {
  QXHWCalc::PhysParams params;
  EXPECT_EQ(records(params, {.proc = 1e18f}).at("slmmemorylimit").limit, -4096);
  EXPECT_EQ(static_cast<unsigned long long>(-4096LL), 18446744073709547520ull);
}

TEST(Resources, OnlyThreeRecordsHaveOneValue) {
  std::string single;
  for (const auto& [name, qos] : records(idle())) {
    if (!qos.barrierPresent) single += name + " ";
  }
  EXPECT_EQ(single, "cpuunits quotatime quotaugidlimit ");
}

TEST(Distribution, IsCutBeforeTheVersion) {
  EXPECT_EQ(hwcalc::splitDistribution("redhat-9"), (QXA::QXADistribution{"redhat", "9"}));
  EXPECT_EQ(hwcalc::splitDistribution("suse-9.1"), (QXA::QXADistribution{"suse", "9.1"}));
}

TEST(Distribution, IsCutAtTheLastDash) {
  EXPECT_EQ(hwcalc::splitDistribution("red-hat-9"), (QXA::QXADistribution{"red-hat", "9"}));
  EXPECT_EQ(hwcalc::splitDistribution("suse-9-beta"), (QXA::QXADistribution{"suse-9-beta", ""}));
}

TEST(Distribution, WithoutAVersionIsAllName) {
  EXPECT_EQ(hwcalc::splitDistribution("fedora"), (QXA::QXADistribution{"fedora", ""}));
  EXPECT_EQ(hwcalc::splitDistribution("debian-sarge"), (QXA::QXADistribution{"debian-sarge", ""}));
  EXPECT_EQ(hwcalc::splitDistribution("debian-"), (QXA::QXADistribution{"debian-", ""}));
  EXPECT_EQ(hwcalc::splitDistribution(""), (QXA::QXADistribution{"", ""}));
}

TEST(Distribution, DashAtTheBeginningDoesNotCut) {
  EXPECT_EQ(hwcalc::splitDistribution("-9"), (QXA::QXADistribution{"-9", ""}));
}

TEST(Distribution, WithoutDashButWithADigitFirstIsBothByIntention) {
  EXPECT_EQ(hwcalc::splitDistribution("9x"), (QXA::QXADistribution{"9x", "9x"}));
}
