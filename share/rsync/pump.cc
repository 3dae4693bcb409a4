#include "share/rsync/pump.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace qxrsync {

namespace {

constexpr size_t kLargestMove = 1 << 20;  // bytes in one call
constexpr size_t kBufferSize = 256 << 10;
constexpr int kMovesPerTurn = 16;

bool isPipe(int fd) {
  struct stat status {};
  return ::fstat(fd, &status) == 0 && S_ISFIFO(status.st_mode);
}

}  // namespace

Pump::Pump(int source, int sink) : source_(source), sink_(sink), way_(Way::kThroughPipe) {
  setNonBlocking(source, true);
  setNonBlocking(sink, true);
  if (isPipe(source) || isPipe(sink)) {
    way_ = Way::kDirect;
  } else {
    between_ = makePipe();
    enlargePipe(between_.second.get(), kPipeSize);
  }
}

Pump::Step Pump::outcome(ssize_t count) {
  if (count > 0) return Step::kMoved;
  if (count == 0) return Step::kEnded;
  if (errno == EAGAIN || errno == EINTR) return Step::kWouldBlock;
  return errno == EINVAL || errno == ENOSYS ? Step::kUnsupported : Step::kEnded;
}

Pump::Step Pump::spliceDirectly() {
  const Step step = outcome(
      ::splice(source_, nullptr, sink_, nullptr, kLargestMove, SPLICE_F_MOVE | SPLICE_F_NONBLOCK));
  if (step == Step::kMoved) movedSinceWait_ = true;
  if (step == Step::kWouldBlock) {
    // It is not told which side was not ready. Most often the source has been
    // emptied; but when waiting for one side did not help, it is the other.
    waitForSink_ = !movedSinceWait_ && !waitForSink_;
    movedSinceWait_ = false;
  }
  return step;
}

Pump::Step Pump::spliceThroughPipe() {
  if (held_ == 0) {
    const ssize_t count = ::splice(source_, nullptr, between_.second.get(), nullptr, kLargestMove,
                                   SPLICE_F_MOVE | SPLICE_F_NONBLOCK);
    const Step step = outcome(count);
    waitForSink_ = false;
    if (step != Step::kMoved) return step;
    held_ = static_cast<size_t>(count);
  }
  const ssize_t count = ::splice(between_.first.get(), nullptr, sink_, nullptr, held_,
                                 SPLICE_F_MOVE | SPLICE_F_NONBLOCK);
  const Step step = outcome(count);
  waitForSink_ = true;
  if (step == Step::kMoved) held_ -= static_cast<size_t>(count);
  return step;
}

Pump::Step Pump::copy() {
  if (held_ == 0) {
    waitForSink_ = false;
    const ssize_t count = ::read(source_, buffer_.data(), buffer_.size());
    const Step step = outcome(count);
    if (step != Step::kMoved) return step;
    heldFrom_ = 0;
    held_ = static_cast<size_t>(count);
  }
  waitForSink_ = true;
  const ssize_t count = ::write(sink_, buffer_.data() + heldFrom_, held_);
  const Step step = outcome(count);
  if (step == Step::kMoved) {
    heldFrom_ += static_cast<size_t>(count);
    held_ -= static_cast<size_t>(count);
  }
  return step;
}

void Pump::changeToCopying() {
  way_ = Way::kCopy;
  buffer_.resize(std::max(kBufferSize, held_));
  heldFrom_ = 0;
  size_t rescued = 0;
  while (rescued < held_) {  // what the sink refused from the pipe in between
    const ssize_t count = ::read(between_.first.get(), buffer_.data() + rescued, held_ - rescued);
    if (count <= 0 && errno != EINTR) break;
    if (count > 0) rescued += static_cast<size_t>(count);
  }
  held_ = rescued;
}

Pump::Step Pump::step() {
  switch (way_) {
    case Way::kDirect:
      return spliceDirectly();
    case Way::kThroughPipe:
      return spliceThroughPipe();
    case Way::kCopy:
      break;
  }
  return copy();
}

void Pump::move() {
  hadEnough_ = false;
  for (int turn = 0; turn < kMovesPerTurn && !done_; ++turn) {
    switch (step()) {
      case Step::kMoved:
        break;
      case Step::kWouldBlock:
        return;
      case Step::kEnded:
        done_ = true;
        return;
      case Step::kUnsupported:
        if (way_ == Way::kCopy) {
          done_ = true;
          return;
        }
        changeToCopying();
        break;
    }
  }
  hadEnough_ = !done_;
}

pollfd Pump::wanted() const {
  if (done_ || hadEnough_) return {-1, 0, 0};
  return waitForSink_ ? pollfd{sink_, POLLOUT, 0} : pollfd{source_, POLLIN, 0};
}

bool Pump::hasPending() const {
  if (done_) return false;
  if (held_ > 0) return true;
  pollfd readable{source_, POLLIN, 0};
  return ::poll(&readable, 1, 0) == 1 && (readable.revents & POLLIN) != 0;
}

}  // namespace qxrsync
