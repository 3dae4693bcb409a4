// The engine's parts that need no channel.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <chrono>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "share/engine/compression.h"
#include "share/engine/digest.h"
#include "share/engine/hello.h"
#include "share/engine/mapped_files.h"
#include "share/engine/records.h"
#include "share/engine/rounds.h"
#include "share/rsync/engine_choice.h"
#include "share/rsync/failure.h"

using engine::Buffer;
using engine::CompressionControl;
using engine::Decoder;
using engine::ProtocolError;

TEST(EngineWire, NumbersSurvive) {
  for (const std::uint64_t value : {0UL, 1UL, 127UL, 128UL, 16384UL, ~0UL >> 1, ~0UL}) {
    Buffer bytes;
    engine::putNumber(bytes, value);
    EXPECT_EQ(Decoder(bytes.view()).number(), value);
  }
  for (const std::int64_t value : {0L, -1L, 1L, INT64_MIN, INT64_MAX}) {
    Buffer bytes;
    engine::putSigned(bytes, value);
    EXPECT_EQ(Decoder(bytes.view()).signedNumber(), value);
  }
}

TEST(EngineWire, WhatIsCutOffTooLargeOrWrittenInTwoWaysIsRefused) {
  EXPECT_THROW(Decoder("").byte(), ProtocolError);
  EXPECT_THROW(Decoder("\x80").number(), ProtocolError);
  EXPECT_THROW(Decoder(std::string_view("\x80\0", 2)).number(), ProtocolError);
  EXPECT_THROW(Decoder("\xff\xff\xff\xff\xff\xff\xff\xff\xff\x7f").number(), ProtocolError);
  EXPECT_THROW(Decoder("\x05").number(4, "x"), ProtocolError);
  EXPECT_THROW(Decoder("\3ab").text(10, "x"), ProtocolError);
  EXPECT_THROW(Decoder("\3abc").text(2, "x"), ProtocolError);
}

TEST(EngineRecords, EntrySurvives) {
  engine::Entry entry;
  entry.name = "name";
  entry.mode = S_IFCHR | 0640;
  entry.uid = 4000000000;
  entry.seconds = -5;
  entry.nanoseconds = 999999999;
  entry.major = 259;
  entry.minor = 70000;
  entry.attributes = {{"system.posix_acl_access", "x"}, {"user.a", std::string(1000, '\0')}};
  Buffer bytes;
  engine::putEntry(bytes, entry);
  Decoder from(bytes.view());
  engine::Entry taken;
  engine::takeEntry(from, taken);
  EXPECT_TRUE(from.atEnd());
  EXPECT_EQ(taken.name, entry.name);
  EXPECT_EQ(taken.mode, entry.mode);
  EXPECT_EQ(taken.uid, entry.uid);
  EXPECT_EQ(taken.seconds, entry.seconds);
  EXPECT_EQ(taken.nanoseconds, entry.nanoseconds);
  EXPECT_EQ(taken.major, entry.major);
  EXPECT_EQ(taken.minor, entry.minor);
  EXPECT_EQ(taken.attributes, entry.attributes);
}

TEST(EngineRecords, AttributesOfOtherKindsAreRefused) {
  engine::Entry entry;
  entry.name = "name";
  entry.mode = S_IFREG;
  entry.attributes = {{"system.nfs4_acl", "x"}};
  Buffer bytes;
  engine::putEntry(bytes, entry);
  Decoder from(bytes.view());
  engine::Entry taken;
  EXPECT_THROW(engine::takeEntry(from, taken), ProtocolError);
}

TEST(EngineDigest, HowPiecesAreCutMakesNoDifference) {
  std::string text(1000000, '\0');
  std::mt19937 random(3);
  for (char& c : text) c = static_cast<char>(random());
  engine::Digester digester;
  engine::BlockHasher blocks(128 << 10);
  for (size_t at = 0; at < text.size();) {
    const size_t count = std::min<size_t>(1 + random() % 200000, text.size() - at);
    digester.add(at, std::string_view(text).substr(at, count));
    blocks.add(at, std::string_view(text).substr(at, count));
    at += count;
  }
  EXPECT_EQ(digester.result(), engine::digestOf(text));
  const std::vector<engine::Digest> hashes = blocks.finish(text.size());
  ASSERT_EQ(hashes.size(), 8U);
  for (size_t i = 0; i < hashes.size(); ++i)
    EXPECT_EQ(hashes[i],
              engine::digestOf(std::string_view(text).substr(i * (128 << 10), 128 << 10)));
}

TEST(EngineDigest, HoleIsToldFromNothingAndFromZeros) {
  engine::Digester hole;
  hole.add(4096, "x");
  engine::Digester none;
  none.add(0, "x");
  EXPECT_NE(hole.result(), none.result());
  engine::BlockHasher blocks(4);
  blocks.add(9, "b");
  EXPECT_EQ(blocks.finish(21),
            (std::vector<engine::Digest>{
                {}, {}, engine::digestOf(std::string("\0b\0\0", 4)), {}, {}, {}}));
}

TEST(EngineCompression, FramesSurviveAndWhatDoesNotShrinkIsSentAsItIs) {
  engine::Compressor compressor;
  Buffer frame = engine::emptyFrame();
  frame.append(std::string(100000, 'x'));
  ASSERT_TRUE(compressor.compress(1, frame));
  EXPECT_LT(compressor.frame().size(), 1000U);
  engine::Decompressor decompressor;
  Buffer payload;
  payload.append(compressor.frame().view().substr(engine::kFrameHeader));
  Buffer plain;
  decompressor.decompress(payload, plain);
  EXPECT_EQ(plain.view(), frame.view().substr(engine::kFrameHeader));

  Buffer noise = engine::emptyFrame();
  std::mt19937 random(4);
  for (int i = 0; i < 100000; ++i) noise.append(std::string(1, static_cast<char>(random())));
  EXPECT_FALSE(compressor.compress(1, noise));
}

TEST(EngineCompression, LevelFollowsWhatIsWaitedFor) {
  const int off = CompressionControl::kOff;
  const int lowest = CompressionControl::kLowest;
  const int highest = CompressionControl::kHighest;
  EXPECT_EQ(CompressionControl::next(off, {0.9, 10e6, 0.5}), lowest);
  EXPECT_EQ(CompressionControl::next(off, {0.9, 900e6, 0.5}), off) << "the link is fast";
  EXPECT_EQ(CompressionControl::next(off, {0.2, 10e6, 0.5}), off) << "the disk is slow";
  EXPECT_EQ(CompressionControl::next(off, {0.9, 10e6, 0.2}), off) << "ssh has no processor";
  EXPECT_EQ(CompressionControl::next(1, {0.9, 10e6, 0.5}), 2);
  EXPECT_EQ(CompressionControl::next(1, {0.9, 10e6, 0.2}), 1);
  EXPECT_EQ(CompressionControl::next(1, {0.9, 10e6, 0.05}), 0);
  EXPECT_EQ(CompressionControl::next(highest, {0.9, 1e6, 0.5}), highest);
  EXPECT_EQ(CompressionControl::next(1, {0.1, 10e6, 0.5}), 0);
  EXPECT_EQ(CompressionControl::next(lowest, {0.1, 10e6, 0.5}), off);
}

TEST(EngineCompression, IdleShareIsOfTheTimeSinceTheLastLook) {
  engine::IdleShare share;
  EXPECT_EQ(share.next("cpu nonsense"), 1);
  share.next("cpu  1000 0 1000 2000 500 0 0 0 0 0");
  EXPECT_DOUBLE_EQ(share.next("cpu  1060 0 1015 2020 505 0 0 0 700 0"), 0.25);
  EXPECT_EQ(share.next("cpu  1060 0 1015 2020 505 0 0 0 700 0"), 1) << "no time has passed";
  EXPECT_EQ(share.next(""), 1);
  EXPECT_LE(engine::IdleShare().next(), 1);
}

TEST(EngineRounds, GoOnWhileTheyAreLongAndGetShorter) {
  using std::chrono::seconds;
  EXPECT_FALSE(engine::goesRoundAgain({}));
  EXPECT_FALSE(engine::goesRoundAgain({std::chrono::milliseconds(2999)})) << "little has changed";
  EXPECT_TRUE(engine::goesRoundAgain({seconds(3)}));
  EXPECT_TRUE(engine::goesRoundAgain({seconds(3600)}));
  EXPECT_TRUE(engine::goesRoundAgain({seconds(100), seconds(69)}));
  EXPECT_FALSE(engine::goesRoundAgain({seconds(100), seconds(70)})) << "it does not get shorter";
  EXPECT_FALSE(engine::goesRoundAgain({seconds(100), seconds(200)}));
  EXPECT_TRUE(engine::goesRoundAgain({seconds(100), seconds(200), seconds(100)}));
  EXPECT_FALSE(engine::goesRoundAgain({seconds(100), seconds(2)}));
}

TEST(EngineRounds, EndAfterTheFifth) {
  std::vector<std::chrono::steady_clock::duration> took = {std::chrono::hours(64)};
  for (int round = 0; round < 5; ++round) {
    EXPECT_TRUE(engine::goesRoundAgain(took)) << round;
    took.push_back(took.back() / 2);
  }
  EXPECT_FALSE(engine::goesRoundAgain(took));
}

TEST(EngineMappings, OnlySharedWritableFilesCount) {
  const auto found = engine::writableMappingsIn(
      "7f00-7f01 rw-s 00000000 fe:01 1234                       /no such/file\n"
      "7f01-7f02 rw-p 00000000 fe:01 1235                       /no/private\n"
      "7f02-7f03 r--s 00000000 fe:01 1236                       /no/reading\n"
      "7f03-7f04 rw-s 00000000 00:00 0\n"
      "nonsense\n");
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].first, makedev(0xfe, 1));
  EXPECT_EQ(found[0].second, 1234U);
}

namespace {

class EngineChoice : public testing::Test {
 protected:
  EngineChoice() { ::unsetenv("QX_RSYNC_ENGINE"); }
  ~EngineChoice() override { ::unsetenv("QX_RSYNC_ENGINE"); }
  std::vector<std::string> arguments_ = {
      "-ESHa", "--numeric-ids", "--delete", "--progress-bar",   "--fdin", "5", "--fdout",
      "6",     "0.0.0.0:/",     "/to",      "--exclude=/proc/*"};
};

}  // namespace

TEST_F(EngineChoice, MigrationsCommandLineIsForTheEngine) {
  const auto task = qxrsync::engineTask(qxrsync::parseOptions(arguments_));
  ASSERT_TRUE(task);
  EXPECT_EQ(*task, (qxrsync::EngineTask{"/to", {"/proc/*"}}));
  EXPECT_TRUE(qxrsync::engineServes(qxrsync::parseOptions(
      {"--server", "--sender", "-ESHa", "--numeric-ids", "--delete", ".", "/"})));
}

TEST_F(EngineChoice, AnyOtherIsStocks) {
  for (const char* more :
       {"--exclude=- x", "--exclude=!", "--checksum", "-z", "/third", "--exclude="}) {
    std::vector<std::string> arguments = arguments_;
    arguments.emplace_back(more);
    EXPECT_FALSE(qxrsync::engineTask(qxrsync::parseOptions(arguments))) << more;
  }
  arguments_[2] = "--numeric-ids";  // no --delete
  EXPECT_FALSE(qxrsync::engineTask(qxrsync::parseOptions(arguments_)));
  for (const char* served : {"/srv", "srv/"})
    EXPECT_FALSE(qxrsync::engineServes(qxrsync::parseOptions(
        {"--server", "--sender", "-ESHa", "--numeric-ids", "--delete", ".", served})))
        << served;
}

TEST_F(EngineChoice, ExclusionsThatDoNotFitIntoTheGreetingAreStocks) {
  for (const size_t count : {10000UL, 240UL, 250UL}) {  // of 70, 4100 and 4100 bytes
    const std::string name(count == 10000 ? 70 : engine::kLongestPattern, 'x');
    std::vector<std::string> arguments = arguments_;
    arguments.pop_back();
    for (size_t i = 0; i < count; ++i) arguments.push_back("--exclude=" + name);
    const auto task = qxrsync::engineTask(qxrsync::parseOptions(arguments));
    EXPECT_EQ(bool(task), count != 250) << count;
    if (!task) continue;
    Buffer greeting;
    engine::putHello(greeting, {true,
                                std::string(engine::kLongestIdentity, '0'),
                                task->patterns,
                                {host::kMostKibPerSecond, true}});
    EXPECT_LE(greeting.size(), engine::kLargestFrame) << count;
  }
}

TEST_F(EngineChoice, IsWhatTheEnvironmentSays) {
  const qxrsync::Options options = qxrsync::parseOptions(arguments_);
  for (const char* value : {"", "own"}) {
    ::setenv("QX_RSYNC_ENGINE", value, 1);
    EXPECT_TRUE(qxrsync::engineTask(options)) << value;
  }
  ::setenv("QX_RSYNC_ENGINE", "stock", 1);
  EXPECT_FALSE(qxrsync::engineTask(options));
  ::setenv("QX_RSYNC_ENGINE", "fast", 1);
  try {
    qxrsync::engineTask(options);
    ADD_FAILURE() << "it is taken";
  } catch (const qxrsync::Failure& failure) {
    EXPECT_EQ(failure.status(), 1);
    EXPECT_STREQ(failure.what(), "'fast' in QX_RSYNC_ENGINE is neither 'own' nor 'stock'");
  }
}
