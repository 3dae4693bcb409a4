#include "hwcalc/formulas.h"

#include <algorithm>
#include <cfloat>
#include <cstdint>
#include <limits>

namespace hwcalc {

// Each operation has to round to its own type: no wider registers, no fused
// multiplications.
static_assert(FLT_EVAL_METHOD == 0);

namespace {

using std::int32_t;
using std::int64_t;
using std::uint32_t;
using std::uint64_t;

// One line of the result; a line without a barrier has one value only.
struct Row {
  const char* name;
  bool barrierPresent;
  int64_t barrier;
  int64_t limit;
};

constexpr bool kTwo = true;
constexpr bool kOne = false;
constexpr int64_t kUnlimited = std::numeric_limits<int64_t>::max();

int32_t sat(float value) { return QXHWCalc::check_overflow_parameter("", value); }

// From double to the single precision that sat takes.
int32_t satDouble(double value) { return sat(static_cast<float>(value)); }

int32_t satInteger(int64_t value) { return sat(static_cast<float>(value)); }

int32_t scaled(uint32_t measured, int32_t minimum, float scale) {
  return sat(static_cast<float>(std::max(static_cast<int32_t>(measured), minimum)) * scale);
}

// A 32-bit product that wraps.
int32_t product(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

// The measurement after its minimums and factors.
struct Base {
  int32_t d, i, p, t, o, f, v, l, s, k, n, q;
  float a;
};

int32_t quotaIds(uint32_t measured) {
  return measured == 0 ? 0 : std::max(product(2, static_cast<int32_t>(measured)), 1024);
}

Base baseValues(const QXHWCalc::PhysParams& m, Scales scales) {
  constexpr int32_t kNoMinimum = std::numeric_limits<int32_t>::min();
  Base b{};
  // clang-format off
  b.d = scaled(m.diskspace,    kNoMinimum, scales.disk);
  b.i = scaled(m.diskinodes,   kNoMinimum, scales.disk);
  b.p = scaled(m.numproc,      240,        scales.proc);
  b.a = m.avnumproc *                      scales.proc;
  b.t = scaled(m.numtcpsock,   80,         scales.proc);
  b.o = scaled(m.numothersock, 80,         scales.proc);
  b.f = scaled(m.numfile,      9312,       scales.proc);
  b.v = scaled(m.privvmpages,  kNoMinimum, scales.proc);
  b.l = scaled(m.lockedpages,  256,        scales.proc);
  b.s = scaled(m.shmpages,     21504,      scales.proc);
  b.k = scaled(m.numflock,     188,        scales.proc);
  b.n = scaled(m.numiptent,    128,        scales.proc);
  b.q = quotaIds(m.quotaugidlimit);
  // clang-format on
  // Intended: the minimums of these two, unlike the others, are not scaled.
  if (b.a < 180.0f) b.a = 180.0f;
  if (b.v <= 65535) b.v = 65536;
  return b;
}

// Bytes of buffers for sockets. Between barrier and limit, 2560 bytes a socket are
// kept for sending.
struct SocketBuffers {
  int64_t barrier;
  int64_t limit;
};

SocketBuffers socketBuffers(int64_t sockets) {
  const float bytes = static_cast<float>(sockets * 65536);
  const double reserve = static_cast<double>(sockets) * 2.5 * 1024.0;
  return {satDouble(static_cast<double>(bytes) - reserve), sat(bytes)};
}

int32_t openFiles(const Base& b) {
  const int64_t sockets = int64_t{b.o} + b.t + 255;
  const int32_t byProcesses = satDouble(static_cast<double>(b.a) * 32.0);
  return std::max({b.f, satInteger(sockets), byProcesses});
}

// A value and a tenth more, in double precision.
int32_t plusTenth(int64_t value) { return satDouble(static_cast<double>(value) * 1.1); }

// A float as a 64-bit unsigned number: a negative one wraps, as on x86-64.
uint64_t truncated(float value) {
  constexpr float kTwo63 = 9223372036854775808.0f;
  if (value >= kTwo63) return static_cast<uint64_t>(value);
  if (value <= -kTwo63) return uint64_t{1} << 63;
  return static_cast<uint64_t>(static_cast<int64_t>(value));
}

// The memory limit, in bytes: what the other records allow the container's kernel,
// sockets and processes together.
struct MemoryParts {
  int32_t kernel;        // bytes
  int32_t tcpBuffers;    // bytes; once for sending, once for receiving
  int32_t otherBuffers;  // bytes
  int32_t privatePages;
  int32_t lockedPages;
};

int64_t memoryLimit(const MemoryParts& parts, float procScale, int32_t pageSize) {
  float sum = static_cast<float>(parts.kernel);
  sum += static_cast<float>(product(2, parts.tcpBuffers));
  sum += static_cast<float>(parts.otherBuffers);
  sum += 262144.0f;
  sum += static_cast<float>(product(pageSize, parts.privatePages));
  sum += static_cast<float>(product(pageSize, parts.lockedPages));
  sum = sum * procScale;
  // Intended: this wraps, to -4096 with pages of 4096 bytes, which as an unsigned
  // number is so large that it never binds. The limits in use rest on that.
  const uint64_t cap = static_cast<uint64_t>(int64_t{product(pageSize, 1073741823)});
  return static_cast<int64_t>(static_cast<float>(cap) > sum ? truncated(sum) : cap);
}

}  // namespace

std::vector<QXL::QXLQoS> resourceRecords(const QXHWCalc::PhysParams& params, Scales scales,
                                         int pageSize) {
  const Base base = baseValues(params, scales);
  const auto& [d, i, p, t, o, f, v, l, s, k, n, q, a] = base;
  const int64_t files = openFiles(base);
  const int32_t cache = plusTenth(files * 384);
  const int32_t kernel = satInteger(int64_t{p} * 61440 + cache);
  const auto [Tb, T] = socketBuffers(t);
  const auto [Ob, O] = socketBuffers(o);
  // Intended: single precision here, where the other tenths are in double.
  const int32_t privateLimit = sat(static_cast<float>(v) * 1.1f);
  const int32_t shared = s > 1023 ? s : 1024;
  const int64_t memory =
      memoryLimit({kernel, static_cast<int32_t>(T), static_cast<int32_t>(O), privateLimit, l},
                  scales.proc, pageSize);
  // clang-format off
  const Row rows[] = {
    // name                  barrier        limit
    {"numproc",        kTwo, p,            p},
    {"avnumproc",      kTwo, sat(a),       sat(a)},
    {"numtcpsock",     kTwo, t,            t},
    {"numothersock",   kTwo, o,            o},
    {"numpty",         kTwo, 255,          255},
    {"numfile",        kTwo, files,        files},
    {"dcachesize",     kTwo, cache,        cache},
    {"kmemsize",       kTwo, kernel,       kernel},
    {"tcpsndbuf",      kTwo, Tb,           T},
    {"tcprcvbuf",      kTwo, Tb,           T},
    {"othersockbuf",   kTwo, Ob,           O},
    {"dgramrcvbuf",    kTwo, 262144,       262144},
    {"vmguarpages",    kTwo, 0,            kUnlimited},
    {"privvmpages",    kTwo, v,            privateLimit},
    {"oomguarpages",   kTwo, 0,            kUnlimited},
    {"lockedpages",    kTwo, l,            l},
    {"shmpages",       kTwo, shared,       shared},
    {"physpages",      kTwo, 0,            kUnlimited},
    {"numflock",       kTwo, k,            plusTenth(k)},
    {"numsiginfo",     kTwo, 256,          256},
    {"numiptent",      kTwo, n,            n},
    {"diskspace",      kTwo, d,            plusTenth(d)},
    {"diskinodes",     kTwo, i,            plusTenth(i)},
    {"cpuunits",       kOne, 0,            1000},
    {"quotatime",      kOne, 0,            0},
    {"quotaugidlimit", kOne, 0,            q},
    {"slmmemorylimit", kTwo, memory,       memory},
  };
  // clang-format on
  std::vector<QXL::QXLQoS> records;
  for (const Row& row : rows) {
    records.push_back({row.name, row.barrier, row.barrierPresent, row.limit});
  }
  return records;
}

QXA::QXADistribution splitDistribution(const std::string& distribution) {
  const uint32_t dash = static_cast<uint32_t>(distribution.rfind('-'));
  const uint32_t next = dash + 1;
  const bool splits = dash != 0 && next < distribution.size() && distribution[next] >= '0' &&
                      distribution[next] <= '9';
  if (!splits) return {distribution, ""};
  return {distribution.substr(0, dash), distribution.substr(next)};
}

}  // namespace hwcalc

int QXHWCalc::check_overflow_parameter(const char*, float value) {
  // A value that is no number counts as too large.
  if (!(value < 2147483648.0f)) return std::numeric_limits<int>::max();
  // Nothing catches what is too small; this is what the processor makes of it.
  if (value < -2147483648.0f) return std::numeric_limits<int>::min();
  return static_cast<int>(value);
}
