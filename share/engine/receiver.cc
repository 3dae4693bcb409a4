#include "share/engine/receiver.h"

#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>

#include "host/visible.h"
#include "share/engine/applier.h"
#include "share/engine/changes_report.h"
#include "share/engine/compression.h"
#include "share/engine/frame.h"
#include "share/engine/hello.h"
#include "share/engine/listing.h"
#include "share/engine/marker.h"
#include "share/engine/payload.h"
#include "share/rsync/failure.h"

namespace engine {

namespace {

constexpr size_t kFramesPerLane = 4;     // that may wait to be done
constexpr size_t kWantFrame = 64 << 10;  // bytes, about
constexpr size_t kWantedNamesPerFrame = 500;

// Nothing is there but what a new file system has.
bool isEmpty(const Tree& tree) {
  Listing listing;
  if (!listing.read(tree.root())) return false;
  for (const Listing::Item& item : listing.items())
    if (listing.name(item) != "lost+found") return false;
  return true;
}

}  // namespace

class Receiver::Work {
 public:
  explicit Work(const ReceiverSetup& setup)
      : setup_(setup),
        tree_(setup.root),
        rules_(setup.patterns),
        writer_(*setup.channel),
        reader_(*setup.channel),
        copy_(tree_, rules_, {setup.accessLists, setup.attributes}, problems_) {
    copy_.keepsNanoseconds = setup.keepsNanoseconds;
    copy_.want = [this](const std::string& directory, const std::vector<std::string>& names) {
      sendWant(directory, names);
    };
  }

  int run();
  void abandon();
  Reached reached() const { return {bytesDone_, bytesKnown_}; }

 private:
  // Frames of one lane, in order, and the thread that does them.
  struct Lane {
    explicit Lane(Copy& copy) : applier(copy) {}
    Applier applier;
    std::deque<std::pair<FrameHeader, Buffer>> frames;
    bool busy = false;
    std::thread thread;
  };

  void greet();
  void runLane(Lane& lane);
  void receive();
  bool take(const FrameHeader& header, Buffer& payload);
  void enqueue(const FrameHeader& header, Buffer& payload);
  void waitForLanes();
  void sendWant(const std::string& directory, const std::vector<std::string>& names);
  void sendNumber(Kind kind, std::uint64_t number);
  void stopLanes();

  const ReceiverSetup setup_;
  Tree tree_;
  Rules rules_;
  Problems problems_;
  FrameWriter writer_;
  FrameReader reader_;
  Copy copy_;
  Marker marker_{setup_.folder, tree_};
  std::atomic<std::uint64_t> bytesDone_{0};
  std::atomic<std::uint64_t> bytesKnown_{0};
  std::uint64_t problemsThere_ = 0;

  std::mutex mutex_;  // for what follows
  std::condition_variable changed_;
  std::deque<std::unique_ptr<Lane>> lanes_;
  std::vector<Buffer> spare_;
  bool closing_ = false;
  bool abandoned_ = false;
  std::exception_ptr error_;
};

// How it is copied; why everything is looked at again, where this end had a mark or none.
const char* textOf(Way way, bool marked) {
  switch (way) {
    case Way::kComparing:
      return marked ? "copied by the engine: what differs from what is there, as the other end "
                      "has no list of it"
                    : "copied by the engine: what differs from what is there, as that is not "
                      "marked as a whole copy";
    case Way::kDifferences:
      return "copied by the engine: what has changed since the last pass";
    default:
      return "copied by the engine: everything";
  }
}

void Receiver::Work::greet() {
  copy_.wasEmpty = isEmpty(tree_);
  Buffer frame = emptyFrame();
  // From here on what is there is not what a manifest tells, until the end.
  const std::string identity = marker_.take();
  putHello(frame, ReceiverHello{copy_.wasEmpty, identity, setup_.patterns, setup_.pace});
  if (frame.size() - kFrameHeader > kLargestFrame)
    throw qxrsync::Failure(qxrsync::kExitSyntax, "there are too many exclusions");
  writer_.write(Kind::kHello, 0, 0, frame);
  Buffer payload;
  const auto header = reader_.read(payload);
  if (!header) throw ProtocolError("the other end of the data channel closed it");
  if (header->kind != Kind::kHello)
    throw ProtocolError("the other end did not start with a greeting");
  const SenderHello theirs = takeSenderHello(payload.view());
  qxrsync::inform(textOf(theirs.way, !identity.empty()));
  const std::scoped_lock lock(mutex_);
  for (unsigned i = 0; i < theirs.lanes; ++i) lanes_.push_back(std::make_unique<Lane>(copy_));
}

void Receiver::Work::runLane(Lane& lane) {
  Decompressor decompressor;
  Buffer plain;
  std::unique_lock lock(mutex_);
  try {
    while (true) {
      changed_.wait(lock, [&] { return closing_ || !lane.frames.empty(); });
      if (lane.frames.empty()) return;
      auto [header, payload] = std::move(lane.frames.front());
      lane.frames.pop_front();
      lane.busy = true;
      lock.unlock();
      if ((header.flags & kCompressed) != 0) {
        decompressor.decompress(payload, plain);
        lane.applier.apply(plain.view());
      } else {
        lane.applier.apply(payload.view());
      }
      lock.lock();
      lane.busy = false;
      spare_.push_back(std::move(payload));
      changed_.notify_all();
    }
  } catch (...) {
    if (!lock.owns_lock()) lock.lock();
    if (!error_) error_ = std::current_exception();
    changed_.notify_all();
    reader_.interrupt();
  }
}

void Receiver::Work::enqueue(const FrameHeader& header, Buffer& payload) {
  std::unique_lock lock(mutex_);
  if (header.lane >= lanes_.size())
    throw ProtocolError("there is no lane " + std::to_string(header.lane));
  Lane& lane = *lanes_[header.lane];
  changed_.wait(lock, [&] { return error_ || lane.frames.size() < kFramesPerLane; });
  if (error_) std::rethrow_exception(error_);
  lane.frames.emplace_back(header, std::move(payload));
  if (spare_.empty()) {
    payload = Buffer(kUsualFrame + (16 << 10));
  } else {
    payload = std::move(spare_.back());
    spare_.pop_back();
  }
  lock.unlock();
  changed_.notify_all();
}

void Receiver::Work::waitForLanes() {
  std::unique_lock lock(mutex_);
  const auto idle = [&] {
    for (const auto& lane : lanes_)
      if (lane->busy || !lane->frames.empty()) return false;
    return true;
  };
  changed_.wait(lock, [&] { return error_ || idle(); });
  if (error_) std::rethrow_exception(error_);
  // What was passed over must not be taken for done, by anybody.
  if (abandoned_) throw qxrsync::Failure(qxrsync::kExitSignal, "the copy was given up");
}

void Receiver::Work::sendWant(const std::string& directory, const std::vector<std::string>& names) {
  for (size_t at = 0; at < names.size();) {
    Buffer some;
    std::uint64_t count = 0;
    for (; at < names.size() && count < kWantedNamesPerFrame && some.size() < kWantFrame; ++at) {
      putText(some, names[at]);
      ++count;
    }
    Buffer frame = emptyFrame(some.size() + directory.size() + 32);
    putText(frame, directory);
    putNumber(frame, count);
    frame.append(some.view());
    writer_.write(Kind::kWant, 0, 0, frame);
  }
}

void Receiver::Work::sendNumber(Kind kind, std::uint64_t number) {
  Buffer frame = emptyFrame();
  putNumber(frame, number);
  writer_.write(kind, 0, 0, frame);
}

// False: that was the last one.
bool Receiver::Work::take(const FrameHeader& header, Buffer& payload) {
  Decoder from(payload.view());
  switch (header.kind) {
    case Kind::kRecords:
      enqueue(header, payload);
      return true;
    case Kind::kBarrier: {
      const std::uint64_t number = from.number();
      expectEnd(from);
      waitForLanes();
      copy_.wasEmpty = false;  // a further round may come
      sendNumber(Kind::kReached, number);
      return true;
    }
    case Kind::kMessage:
      qxrsync::complain("[sender] " +
                        host::visibleLine(from.text(kLongestPath, "message"), kLongestPath));
      return true;
    case Kind::kChanges:
      qxrsync::inform(textOf(takeReport(payload.view())));
      return true;
    case Kind::kKnown:
      bytesDone_ = from.number();
      bytesKnown_ = from.number();
      expectEnd(from);
      return true;
    case Kind::kEnd: {
      const Farewell farewell = takeFarewell(payload.view());
      problemsThere_ = farewell.problems;
      waitForLanes();
      if (!problems_.any()) marker_.put(farewell.identity);
      sendNumber(Kind::kSummary, problems_.count());
      return false;
    }
    default:
      throw ProtocolError("the other end sent a frame out of turn");
  }
}

void Receiver::Work::receive() {
  Buffer payload;
  try {
    while (const auto header = reader_.read(payload))
      if (!take(*header, payload)) return;
  } catch (const Interrupted&) {  // by a lane that has failed
    const std::scoped_lock lock(mutex_);
    std::rethrow_exception(error_);
  }
  throw ProtocolError("the other end of the data channel closed it before the end");
}

void Receiver::Work::stopLanes() {
  {
    const std::scoped_lock lock(mutex_);
    closing_ = true;
  }
  changed_.notify_all();
  for (const auto& lane : lanes_) lane->thread.join();
}

void Receiver::Work::abandon() {
  std::vector<Applier*> appliers;
  {
    const std::scoped_lock lock(mutex_);
    abandoned_ = true;
    for (const auto& lane : lanes_) appliers.push_back(&lane->applier);
  }
  for (Applier* applier : appliers) applier->abandon();
}

int Receiver::Work::run() {
  if (!tree_.open())
    throw qxrsync::systemFailure(qxrsync::kExitFileSelection,
                                 "cannot open the directory '" + setup_.root + "'");
  ::umask(0);
  rlimit files{};
  if (::getrlimit(RLIMIT_NOFILE, &files) == 0) {  // one for each level of what is removed
    files.rlim_cur = files.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &files);
  }
  greet();
  for (const auto& lane : lanes_) lane->thread = std::thread([this, &lane] { runLane(*lane); });
  try {
    receive();
  } catch (...) {
    abandon();
    for (const auto& lane : lanes_) lane->thread.detach();
    throw;
  }
  stopLanes();
  setup_.channel->finish();
  return problems_.any() || problemsThere_ > 0 ? qxrsync::kExitPartial : 0;
}

Receiver::Receiver(const ReceiverSetup& setup) : work_(std::make_unique<Work>(setup)) {}

Receiver::~Receiver() = default;

int Receiver::run() {
  try {
    return work_->run();
  } catch (...) {
    static_cast<void>(work_.release());  // its threads may still run
    throw;
  }
}

void Receiver::abandon() {
  if (work_) work_->abandon();
}

Reached Receiver::reached() const { return work_ ? work_->reached() : Reached{}; }

}  // namespace engine
