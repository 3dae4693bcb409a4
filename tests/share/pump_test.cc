#include "share/rsync/pump.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <string>

#include "support/temp_tree.h"

using host::Fd;
using host::FdPair;
using qxrsync::makePipe;
using qxrsync::makeSocketPair;
using qxrsync::Pump;
using qxrsync::setNonBlocking;

namespace {

// Bytes that are different everywhere, so that a swapped or lost piece shows.
std::string sample(size_t size) {
  std::string text(size, '\0');
  unsigned state = 1;
  for (char& c : text) c = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
  return text;
}

// Pushes bytes into the source and takes what comes out of the sink, polling as
// the joiner does.
std::string pumped(host::FdPair source, host::FdPair sink, const std::string& bytes) {
  setNonBlocking(source.second.get(), true);
  setNonBlocking(sink.first.get(), true);
  Pump pump(source.first.get(), sink.second.get());
  std::string arrived;
  size_t sent = 0;
  char buffer[10000];
  while (!pump.done()) {
    if (source.second) {
      const ssize_t count = ::write(source.second.get(), bytes.data() + sent,
                                    std::min<size_t>(bytes.size() - sent, 30000));
      if (count > 0) sent += static_cast<size_t>(count);
      if (sent == bytes.size()) source.second.reset();
    }
    pump.move();
    const ssize_t count = ::read(sink.first.get(), buffer, sizeof buffer);
    if (count > 0) arrived.append(buffer, static_cast<size_t>(count));
  }
  sink.second.reset();
  ssize_t count = 0;
  while ((count = ::read(sink.first.get(), buffer, sizeof buffer)) > 0)
    arrived.append(buffer, static_cast<size_t>(count));
  return arrived;
}

}  // namespace

TEST(Pump, BetweenAllKindsOfStreamsBytesArriveInOrder) {
  const std::string bytes = sample(3'000'000);
  EXPECT_TRUE(pumped(makePipe(), makePipe(), bytes) == bytes);
  EXPECT_TRUE(pumped(makePipe(), makeSocketPair(), bytes) == bytes);
  EXPECT_TRUE(pumped(makeSocketPair(), makePipe(), bytes) == bytes);
  EXPECT_TRUE(pumped(makeSocketPair(), makeSocketPair(), bytes) == bytes);
}

TEST(Pump, NothingToMoveWaitsForTheSource) {
  const host::FdPair source = makePipe();
  const host::FdPair sink = makeSocketPair();
  Pump pump(source.first.get(), sink.second.get());
  pump.move();
  EXPECT_FALSE(pump.done());
  EXPECT_FALSE(pump.hasPending());
  EXPECT_EQ(pump.wanted().fd, source.first.get());
  EXPECT_EQ(pump.wanted().events, POLLIN);
}

TEST(Pump, FullSinkIsWaitedForAfterTheSourceDidNotHelp) {
  const host::FdPair source = makePipe();
  const host::FdPair sink = makePipe();
  setNonBlocking(sink.second.get(), true);
  const std::string fill = sample(4096);
  while (::write(sink.second.get(), fill.data(), fill.size()) > 0) {
  }
  ASSERT_EQ(::write(source.second.get(), "x", 1), 1);
  Pump pump(source.first.get(), sink.second.get());
  pump.move();
  pump.move();
  EXPECT_TRUE(pump.hasPending());
  EXPECT_EQ(pump.wanted().fd, sink.second.get());
  EXPECT_EQ(pump.wanted().events, POLLOUT);
}

TEST(Pump, ClosedSinkEndsIt) {
  const host::FdPair source = makePipe();
  host::FdPair sink = makeSocketPair();
  Pump pump(source.first.get(), sink.second.get());
  sink.first.reset();
  ASSERT_EQ(::write(source.second.get(), "x", 1), 1);
  ::signal(SIGPIPE, SIG_IGN);
  pump.move();
  EXPECT_TRUE(pump.done());
  EXPECT_EQ(pump.wanted().fd, -1);
}

TEST(Pump, WhatCannotBeSplicedIsCopied) {
  const test_support::TempTree tree;
  const std::string bytes = sample(3'000'000);
  // An appending file refuses to be spliced into.
  const std::string path = tree.path("sink");
  const host::Fd sink(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  ASSERT_TRUE(sink);
  for (const bool socket : {false, true}) {
    ASSERT_EQ(::ftruncate(sink.get(), 0), 0);
    host::FdPair source = socket ? makeSocketPair() : makePipe();
    setNonBlocking(source.second.get(), true);
    Pump pump(source.first.get(), sink.get());
    for (size_t sent = 0; sent < bytes.size();) {
      const ssize_t count = ::write(source.second.get(), bytes.data() + sent, bytes.size() - sent);
      if (count > 0) sent += static_cast<size_t>(count);
      pump.move();
    }
    source.second.reset();
    while (!pump.done()) pump.move();
    EXPECT_TRUE(test_support::readFile(path) == bytes);
  }
}
