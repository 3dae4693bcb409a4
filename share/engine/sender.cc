#include "share/engine/sender.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "host/visible.h"
#include "share/engine/answers.h"
#include "share/engine/change_watch.h"
#include "share/engine/manifest.h"
#include "share/engine/mapped_files.h"
#include "share/engine/rounds.h"
#include "share/engine/walker.h"
#include "share/rsync/failure.h"

namespace engine {

namespace {

using qxrsync::Failure;
using Clock = std::chrono::steady_clock;

constexpr unsigned kFewestLanes = 2;
constexpr unsigned kUsualMostLanes = 4;
constexpr std::chrono::milliseconds kKnownInterval{500};
// How long changes are kept track of: until the next pass begins, which may take
// long; and after that one, in case that there is yet another.
constexpr std::chrono::hours kUntilNextPass{24};
constexpr std::chrono::minutes kUntilFurtherPass{10};

unsigned lanesHere() {
  return std::clamp(std::thread::hardware_concurrency(), kFewestLanes, kUsualMostLanes);
}

// Problems at the sender are told at the receiver as well.
class SenderProblems : public Problems {
 public:
  explicit SenderProblems(FrameWriter& writer) : writer_(writer) {}

 protected:
  void pass(const std::string& line) override {
    Buffer frame = emptyFrame(line.size() + 16);
    putText(frame, line.substr(0, kLongestPath));
    writer_.write(Kind::kMessage, 0, 0, frame);
  }

 private:
  FrameWriter& writer_;
};

class Sender {
 public:
  explicit Sender(const SenderSetup& setup)
      : setup_(setup), tree_(setup.root), writer_(*setup.channel), reader_(*setup.channel) {}

  int run();

 private:
  void greet();
  void lane(unsigned number);
  void listen();
  void take(const FrameHeader& header, std::string_view payload);
  void takeWant(std::string_view payload);
  void settle();
  void sendLinks();
  void sendKnown();
  void tellKnown();
  void visit();
  void walkOnce();
  void walk();
  void sendReport();
  void sendEnd();
  void fail(std::exception_ptr error);
  void waitForReached(std::uint64_t number);

  const SenderSetup setup_;
  Tree tree_;
  FrameWriter writer_;
  FrameReader reader_;
  CompressionControl compression_{setup_.compression};
  SenderProblems problems_{writer_};
  WorkQueue queue_;
  HardLinks links_;
  Rules rules_;
  ChangeWatch changes_{tree_, rules_, setup_.folder, setup_.trackedPlaces};
  std::unique_ptr<Manifest> before_;
  std::unique_ptr<ManifestWriter> after_;
  std::string identity_;  // of the last manifest that is complete
  std::unique_ptr<Visits> visits_;
  std::unique_ptr<Walk> walk_;
  unsigned lanes_ = lanesHere();

  std::atomic<std::uint64_t> offered_{0};  // records, but for those that were asked for

  std::mutex mutex_;
  std::condition_variable changed_;
  std::uint64_t barriers_ = 0;  // sent
  std::uint64_t reached_ = 0;   // answered
  std::uint64_t wanted_ = 0;    // names asked for, ever
  bool summed_ = false;
  bool ended_ = false;  // End was sent
  std::uint64_t problemsThere_ = 0;
  std::exception_ptr error_;
};

void Sender::greet() {
  Buffer payload;
  const auto header = reader_.read(payload);
  if (!header) throw ProtocolError("the other end of the data channel closed it");
  if (header->kind != Kind::kHello)
    throw ProtocolError("the other end did not start with a greeting");
  const ReceiverHello theirs = takeReceiverHello(payload.view());
  for (const std::string& pattern : theirs.patterns)
    if (!Rules::understands(pattern))
      throw ProtocolError("'" + host::visibleLine(pattern) + "' is not a pattern");
  const host::CopyPace pace = host::slowerOf(setup_.pace, theirs.pace);
  writer_.limit(pace.kibPerSecond * 1024);
  host::stepBack(pace);  // before the threads are there
  rules_ = Rules(theirs.patterns);
  if (!setup_.folder.empty() && !theirs.empty && !theirs.identity.empty()) {
    before_ = Manifest::open(setup_.folder, theirs.patterns);
    if (before_ && before_->identity() != theirs.identity) before_.reset();
  }
  const Way way = theirs.empty ? Way::kEverything : before_ ? Way::kDifferences : Way::kComparing;
  const AttributeKinds kinds{setup_.accessLists, setup_.attributes};
  walk_ = std::make_unique<Walk>(tree_, rules_, kinds, way, queue_, links_, problems_);
  Buffer frame = emptyFrame();
  putHello(frame, SenderHello{way, lanes_});
  writer_.write(Kind::kHello, 0, 0, frame);
}

void Sender::fail(std::exception_ptr error) {
  {
    const std::scoped_lock lock(mutex_);
    if (!error_) error_ = std::move(error);
  }
  queue_.close();
  changed_.notify_all();
}

void Sender::lane(unsigned number) {
  try {
    RecordStream stream(writer_, compression_, static_cast<std::uint8_t>(number));
    Walker walker(*walk_, stream);
    while (const std::optional<Job> job = queue_.take([&] { stream.flush(); })) {
      stream.countIn(job->wanted ? nullptr : &offered_);
      walker.run(*job);
      queue_.done();
    }
  } catch (...) {
    fail(std::current_exception());
  }
}

// A file is wanted at most twice: as it differs, and as it came to harm on the way.
void Sender::takeWant(std::string_view payload) {
  Job job = takeWanted(payload);
  {
    const std::scoped_lock lock(mutex_);
    wanted_ += job.names.size();
    if (wanted_ > 2 * offered_)
      throw ProtocolError("the other end wants more files than there are");
  }
  queue_.add(std::move(job));
}

void Sender::take(const FrameHeader& header, std::string_view payload) {
  if (header.kind == Kind::kWant) return takeWant(payload);
  const std::scoped_lock lock(mutex_);
  if (header.kind == Kind::kReached) {
    reached_ = takeCount(payload);
    if (reached_ > barriers_)
      throw ProtocolError("a barrier that was never sent is said to be reached");
  } else if (header.kind == Kind::kSummary && ended_) {
    problemsThere_ = takeCount(payload);
    summed_ = true;
  } else {
    throw ProtocolError("the other end sent a frame out of turn");
  }
  changed_.notify_all();
}

void Sender::listen() {
  try {
    Buffer payload;
    while (const auto header = reader_.read(payload)) {
      take(*header, payload.view());
      const std::scoped_lock lock(mutex_);
      if (summed_) return;
    }
    throw ProtocolError("the other end of the data channel closed it");
  } catch (...) {
    fail(std::current_exception());
  }
}

void Sender::sendKnown() {
  Buffer frame = emptyFrame();
  putNumber(frame, walk_->bytesDone);
  putNumber(frame, walk_->bytesKnown);
  writer_.write(Kind::kKnown, 0, 0, frame);
}

void Sender::waitForReached(std::uint64_t number) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return error_ || reached_ >= number; });
  if (error_) std::rethrow_exception(error_);
}

// Until nothing is left to do, and the other end, having done everything that was
// sent, wants nothing more.
void Sender::settle() {
  while (true) {
    const bool idle = queue_.waitUntilIdle(lanes_);
    std::uint64_t wantedBefore = 0;
    std::uint64_t number = 0;
    {
      const std::scoped_lock lock(mutex_);
      if (error_) std::rethrow_exception(error_);
      wantedBefore = wanted_;
      number = ++barriers_;
    }
    if (!idle) throw Failure(qxrsync::kExitProtocol, "the transfer was stopped");
    sendKnown();
    Buffer frame = emptyFrame();
    putNumber(frame, number);
    writer_.write(Kind::kBarrier, 0, 0, frame);
    waitForReached(number);
    const std::scoped_lock lock(mutex_);
    if (wanted_ == wantedBefore) return;
  }
}

void Sender::sendLinks() {
  RecordStream stream(writer_, compression_, 0);
  for (const HardLinks::Link& link : links_.takeLinks()) {
    stream.makeRoom(link.path.size() + link.first.size() + 32);
    stream.begin(Record::kLink);
    putText(stream.buffer(), link.path);
    putText(stream.buffer(), link.first);
  }
  stream.flush();
}

// So that the other end can show how far it is.
void Sender::tellKnown() {
  try {
    while (true) {
      {
        std::unique_lock lock(mutex_);
        if (changed_.wait_for(lock, kKnownInterval, [&] { return ended_ || error_; })) return;
      }
      sendKnown();
    }
  } catch (...) {
    fail(std::current_exception());
  }
}

// Until the other end has what was found.
void Sender::visit() {
  if (visits_) {
    for (auto jobs = visits_->next(tree_, rules_); !jobs.empty();
         jobs = visits_->next(tree_, rules_)) {
      for (Job& job : jobs) queue_.add(std::move(job));
      settle();
    }
  } else {
    queue_.add({});
    settle();
  }
  sendLinks();
  settle();
}

// One walk over the tree, or to what has changed in it.
void Sender::walkOnce() {
  if (!setup_.folder.empty()) {
    after_ = std::make_unique<ManifestWriter>(setup_.folder, rules_.patterns());
    if (!after_->good()) after_.reset();
  }
  changes_.take();
  const auto mapped = writableMappings();
  if (after_) after_->addSuspects(mapped);
  walk_->before = before_.get();
  walk_->after = after_.get();
  visits_ = changes_.plan(before_.get(), mapped);
  walk_->visits = visits_.get();
  walk_->directories = 0;
  visit();
  changes_.setIncomplete(walk_->incomplete.take());
  identity_.clear();
  if (!after_ || walk_->distrusted) return;
  if (visits_) visits_->takeOver(*after_);
  after_->addSuspects(writableMappings());
  identity_ = after_->finish();
}

// Once, or in rounds.
void Sender::walk() {
  const bool mayRepeat = walk_->way != Way::kDifferences;
  std::vector<Clock::duration> took;
  while (true) {
    const Clock::time_point began = Clock::now();
    walkOnce();
    took.push_back(Clock::now() - began);
    if (!mayRepeat || identity_.empty() || !goesRoundAgain(took)) return;
    before_ = Manifest::open(setup_.folder, rules_.patterns());
    if (!before_) return;
    walk_->way = Way::kDifferences;
    links_.forget();
  }
}

void Sender::sendReport() {
  ChangesReport report = changes_.report();
  report.directories = visits_ ? visits_->count() : walk_->directories.load();
  Buffer frame = emptyFrame();
  putReport(frame, report);
  writer_.write(Kind::kChanges, 0, 0, frame);
}

void Sender::sendEnd() {
  Buffer frame = emptyFrame();
  putFarewell(frame, {problems_.count(), identity_});
  {
    const std::scoped_lock lock(mutex_);
    ended_ = true;
  }
  changed_.notify_all();
  writer_.write(Kind::kEnd, 0, 0, frame);
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return error_ || summed_; });
  if (error_) std::rethrow_exception(error_);
}

int Sender::run() {
  const std::string missing =
      tree_.open() ? std::string() : "cannot open the directory '" + setup_.root + "'";
  const int error = errno;
  greet();
  if (!missing.empty()) problems_.add({}, missing + ": " + std::strerror(error));
  const bool before = bool(before_);  // there was a pass
  changes_.begin(before_ ? before_->identity() : std::string());
  std::vector<std::thread> threads;
  threads.emplace_back([this] { listen(); });
  threads.emplace_back([this] { tellKnown(); });
  for (unsigned i = 0; i < lanes_; ++i) threads.emplace_back([this, i] { lane(i); });
  try {
    if (missing.empty()) walk();
    if (walk_->way == Way::kDifferences) sendReport();
    sendEnd();
    if (!identity_.empty()) changes_.keep(identity_, before ? kUntilFurtherPass : kUntilNextPass);
  } catch (...) {
    // One that waits for the channel cannot be stopped; it ends with the process.
    for (std::thread& one : threads) one.detach();
    throw;
  }
  queue_.close();
  for (std::thread& one : threads) one.join();
  return problems_.any() || problemsThere_ > 0 ? qxrsync::kExitPartial : 0;
}

}  // namespace

int runSender(const SenderSetup& setup) {
  auto sender = std::make_unique<Sender>(setup);
  try {
    return sender->run();
  } catch (...) {
    static_cast<void>(sender.release());  // its threads may still run
    throw;
  }
}

}  // namespace engine
