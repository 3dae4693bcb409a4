#include "agent/plan/measurement.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <csignal>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>

#include "agent/framework/plugin.h"
#include "agent/plan/amounts.h"
#include "agent/plan/measurement_gaps.h"
#include "agent/plan/memory_limit.h"
#include "agent/system/descendants.h"
#include "agent/wire/request_context.h"
#include "framework/env_manager.h"
#include "hwcalc/entry.h"

namespace agent {

namespace {

constexpr long long kLongestMeasurement = 86400;  // seconds
// Longer than a server of files takes that is there, if busy.
constexpr std::chrono::seconds kMountTimeout(5);

void check(const MeasureSettings& settings) {
  const auto refuse = [](const std::string& what) { throw std::runtime_error(what); };
  if (settings.duration < 0 || settings.duration > kLongestMeasurement) {
    refuse("the duration is not between 0 and 86400 seconds");
  }
  if (settings.interval < 1 || settings.interval > kLongestMeasurement) {
    refuse("the interval is not between 1 and 86400 seconds");
  }
  for (const double scale : {settings.procScale, settings.diskScale}) {
    if (!(scale > 0) || scale > 1000) refuse("a scale is not above 0 and at most 1000");
  }
}

// While the calculator runs on its thread: reports how far it is, and after a
// cancel stops its programs, each that it starts, so that it ends soon.
class Companion {
 public:
  explicit Companion(long long duration)
      : context_(QXL::QXLRequestContextPrototype::getCurrent()),
        cancel_(CurrentRequest::get() ? CurrentRequest::get()->cancel : nullptr),
        measuring_(static_cast<pid_t>(syscall(SYS_gettid))),
        thread_([this, duration]() { run(duration); }) {}
  ~Companion() {
    {
      std::lock_guard lock(mutex_);
      done_ = true;
    }
    changed_.notify_all();
    thread_.join();
  }

 private:
  void run(long long duration) {
    const auto began = std::chrono::steady_clock::now();
    int shown = 0;
    std::unique_lock lock(mutex_);
    auto pause = std::chrono::milliseconds(100);
    while (!changed_.wait_for(lock, pause, [this]() { return done_; })) {
      if (cancel_ && cancel_->isCancelled()) {
        // The calculator's programs live for some milliseconds each.
        pause = std::chrono::milliseconds(2);
        for (const pid_t program : descendantsOfThread(measuring_)) kill(program, SIGTERM);
        continue;
      }
      const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - began;
      const double length = static_cast<double>(std::max(duration, 1LL));
      const int percent = std::min(99, static_cast<int>(passed.count() * 100 / length));
      if (percent < shown + 20) continue;
      shown = percent;
      QXL::QXLRequestProgressData data("");
      data.description = "measuring the server";
      data.percent = percent;
      context_->reportProgress(data);
    }
  }

  boost::intrusive_ptr<QXL::QXLRequestContextPrototype> context_;
  std::shared_ptr<CancelToken> cancel_;
  pid_t measuring_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool done_ = false;
  std::thread thread_;
};

std::vector<std::string> vectorOf(const std::list<std::string>& list) {
  return {list.begin(), list.end()};
}

Measurement toMeasurement(const QXHWCalc::PhysParams& params) {
  Measurement result;
  result.numproc = params.numproc;
  result.avnumproc = std::isfinite(params.avnumproc) ? static_cast<double>(params.avnumproc) : 0;
  result.numtcpsock = params.numtcpsock;
  result.numothersock = params.numothersock;
  result.numfile = params.numfile;
  result.privvmpages = params.privvmpages;
  result.lockedpages = params.lockedpages;
  result.shmpages = params.shmpages;
  result.numflock = params.numflock;
  result.numiptent = params.numiptent;
  result.diskspace = params.diskspace;
  result.diskinodes = params.diskinodes;
  result.quotaugidlimit = params.quotaugidlimit;
  result.pageSize = static_cast<unsigned>(sysconf(_SC_PAGESIZE));
  result.distribution = params.distribution;
  result.hostname = params.hostname;
  result.addresses = vectorOf(params.ip_addresses);
  result.nameservers = vectorOf(params.nameservers);
  result.searchDomains = vectorOf(params.search_domains);
  for (const auto& warning : params.notes.warnings) {
    result.warnings.push_back({warning.code, warning.message});
  }
  for (const auto& exclude : params.notes.excludes) {
    result.excludes.push_back({exclude.path, exclude.excluded});
  }
  return result;
}

// On a thread of its own, as mounts are a thread's for good.
void withoutMounts(const std::vector<std::string>& mountPoints,
                   const std::function<void()>& function) {
  std::exception_ptr problem;
  const auto context = QXL::QXLRequestContextPrototype::getCurrent();
  const CurrentRequest* const current = CurrentRequest::get();
  std::thread([&]() {
    try {
      hideMounts(mountPoints);
      std::optional<CurrentRequestScope> scope;
      if (current) scope.emplace(*current, context);
      function();
    } catch (...) {
      problem = std::current_exception();
    }
  }).join();
  if (problem) std::rethrow_exception(problem);
}

}  // namespace

Measurement measureHere(const MeasureSettings& settings) {
  check(settings);
  const auto calculate =
      reinterpret_cast<QXHWCalculateFunction>(Plugin::currentSymbol(QXHWCalculateName));
  if (!calculate) throw std::runtime_error("no plug-in offers the hardware calculator");
  QXHWCalcSettings request;
  request.measureTime = static_cast<std::uint32_t>(settings.duration);
  request.measureInterval = static_cast<std::int32_t>(settings.interval);
  request.procScale = static_cast<float>(settings.procScale);
  request.diskScale = static_cast<float>(settings.diskScale);
  QXA::QXAEnvConfig config;
  QXHWCalc::PhysParams params;
  char text[sizeof(QXHWCalc::errorText)] = {};
  std::uint32_t code;
  const std::vector<std::string> dead = deadMounts(kMountTimeout);
  {
    const auto run = [&]() {
      const Companion companion(settings.duration);
      code = calculate(request, config, params, text, sizeof text);
    };
    if (dead.empty()) {
      run();
    } else {
      withoutMounts(dead, run);
    }
  }
  if (code != 0 && text[0] != '\0') throw std::runtime_error(text);
  Measurement result = toMeasurement(params);
  // The one failure without a text: all resources are computed by then.
  if (code != 0) {
    result.warnings.push_back(
        {-1, "The host name '" + params.hostname + "' is not one a container can have."});
  }
  const Counted counted{result.numfile, result.numiptent};
  for (const std::string& gap : measurementGaps(counted, countOpenFiles())) {
    result.warnings.push_back({-1, gap});
  }
  for (const std::string& point : dead) {
    result.warnings.push_back({-1, "What is mounted at '" + point +
                                       "' does not answer (a server of files that is gone?): "
                                       "it was not measured."});
  }
  std::optional<std::set<QXL::QXLQoS>> records;
  config.getQoSes(records);
  if (records) {
    if (const auto limit = correctMemoryLimit(*records, result.pageSize, settings.procScale)) {
      result.notes.push_back("The memory limit is " + bytesText(limit->corrected) + " (" +
                             std::to_string(limit->corrected) +
                             " bytes): the usual formula counts in 32 bits, too few for this "
                             "server, and came to " +
                             std::to_string(limit->computed) + " bytes.");
      config.setQoSes(records);
    }
  }
  result.config = QXA::QXAEnvConfigBashParser((QXL::QXLVocCacheLocal())).format(config);
  return result;
}

}  // namespace agent
