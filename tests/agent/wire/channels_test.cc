#include "agent/wire/channels.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include "host/descriptors.h"

namespace {

TEST(Channels, WhatOneEndWritesTheOtherReads) {
  const agent::ChannelPair pair = agent::makeChannelPair(0);
  char buffer[8];
  ASSERT_EQ(write(pair.first->getOutputFd(), "there", 5), 5);
  EXPECT_EQ(read(pair.second->getInputFd(), buffer, sizeof buffer), 5);
  ASSERT_EQ(write(pair.second->getOutputFd(), "back", 4), 4);
  EXPECT_EQ(read(pair.first->getInputFd(), buffer, sizeof buffer), 4);
}

TEST(Channels, DescriptorsCloseOnExecAndWithTheirEnd) {
  agent::ChannelPair pair = agent::makeChannelPair(1048576);
  for (const int fd : {pair.first->getInputFd(), pair.first->getOutputFd(),
                       pair.second->getInputFd(), pair.second->getOutputFd()}) {
    EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
  }
  EXPECT_EQ(fcntl(pair.first->getOutputFd(), F_GETPIPE_SZ), 1048576);
  const int fd = pair.second->getInputFd();
  pair.second.reset();
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST(Channels, ASocketsEndsAreTwoDescriptorsEachAndCloseTogether) {
  agent::ChannelPair pair = agent::makeSocketChannelPair(1048576);
  for (const int fd : {pair.first->getInputFd(), pair.first->getOutputFd(),
                       pair.second->getInputFd(), pair.second->getOutputFd()}) {
    EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
  }
  EXPECT_NE(pair.first->getInputFd(), pair.first->getOutputFd());
  char buffer[8];
  ASSERT_EQ(write(pair.first->getOutputFd(), "there", 5), 5);
  EXPECT_EQ(read(pair.second->getInputFd(), buffer, sizeof buffer), 5);
  ASSERT_EQ(write(pair.second->getOutputFd(), "back", 4), 4);
  EXPECT_EQ(read(pair.first->getInputFd(), buffer, sizeof buffer), 4);
  pair.second.reset();
  EXPECT_EQ(read(pair.first->getInputFd(), buffer, sizeof buffer), 0);
}

TEST(Channels, ATableGivesAnEndOnce) {
  agent::ChannelTable table;
  agent::ChannelPair pair = agent::makeChannelPair(0);
  table.put("t", pair.first);
  EXPECT_EQ(table.take("other"), nullptr);
  EXPECT_EQ(table.take("t"), pair.first);
  EXPECT_EQ(table.take("t"), nullptr);
}

// What the agent starts before, as a server's services, would keep it open.
TEST(Channels, AttendantIsInheritedWhenTheEndIsTakenNotBefore) {
  agent::ChannelTable table;
  host::FdPair ends = host::makePipe();
  host::FdPair attendants = host::makePipe();
  const int attendant = attendants.first.get();
  table.put("t", boost::intrusive_ptr<QXL::QXLChannelEndPrototype>(new agent::LocalChannelEnd(
                     std::move(ends.first), std::move(ends.second), std::move(attendants.first))));
  EXPECT_EQ(fcntl(attendant, F_GETFD), FD_CLOEXEC);
  auto end = table.take("t");
  EXPECT_EQ(fcntl(attendant, F_GETFD), 0);
  end.reset();
  EXPECT_EQ(fcntl(attendant, F_GETFD), -1);
}

TEST(Channels, TokensDiffer) {
  const std::string token = agent::newToken();
  EXPECT_EQ(token.size(), 32u);
  EXPECT_EQ(token.find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_NE(token, agent::newToken());
}

}  // namespace
