#include "share/rsync/handshake.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "share/rsync/descriptor.h"
#include "share/rsync/failure.h"

using namespace qxrsync;  // NOLINT: the whole test is about one header

namespace {

const Offer everything{.acls = true, .xattrs = true, .descriptors = true, .usedBytes = 12345};

// What the exchange makes of these bytes, after which the channel is closed.
std::string afterHearing(const std::string& bytes) {
  host::FdPair in = makePipe();
  const host::FdPair out = makePipe();
  EXPECT_EQ(::write(in.second.get(), bytes.data(), bytes.size()), bytes.size());
  in.second.reset();
  try {
    exchangeOffers(in.first.get(), out.second.get(), everything, Deadline(std::chrono::seconds(5)));
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), 12);
    return failure.what();
  }
  return "agreed";
}

}  // namespace

TEST(Handshake, OfferSurvivesTheWire) {
  for (const bool acls : {false, true})
    for (const bool xattrs : {false, true})
      for (const bool descriptors : {false, true})
        for (const std::uint64_t bytes : {std::uint64_t{0}, UINT64_MAX}) {
          for (const bool engine : {false, true}) {
            for (const bool direct : {false, engine}) {
              const Offer offer{acls, xattrs, descriptors, engine, direct, bytes};
              EXPECT_EQ(parseOffer(formatOffer(offer)), offer) << formatOffer(offer);
            }
          }
        }
  EXPECT_EQ(formatOffer(everything), "QXRSYNC 2 AXD 12345");
  EXPECT_EQ(formatOffer({}), "QXRSYNC 2 - 0");
}

// An end that knows of no engine reads the number, and the zero means nothing to it.
TEST(Handshake, EngineIsAZeroInFrontOfTheNumber) {
  Offer offer = everything;
  offer.engine = true;
  EXPECT_EQ(formatOffer(offer), "QXRSYNC 2 AXD 012345");
  offer.usedBytes = 0;
  EXPECT_EQ(formatOffer(offer), "QXRSYNC 2 AXD 00");
  EXPECT_FALSE(parseOffer("QXRSYNC 2 AXD 0")->engine);
}

TEST(Handshake, DirectConnectionIsASecondZero) {
  Offer offer = everything;
  offer.engine = offer.direct = true;
  EXPECT_EQ(formatOffer(offer), "QXRSYNC 2 AXD 0012345");
  offer.usedBytes = 0;
  EXPECT_EQ(formatOffer(offer), "QXRSYNC 2 AXD 000");
  EXPECT_FALSE(parseOffer("QXRSYNC 2 AXD 00")->direct);
  offer.engine = false;
  EXPECT_EQ(formatOffer(offer), "QXRSYNC 2 AXD 0");
}

TEST(Handshake, WhatIsNotExactlyAnOfferIsNone) {
  for (const char* line :
       {"", "QXRSYNC", "QXRSYNC 2 AX", "QXRSYNC 1 AX 0", "qxrsync 2 AX 0", "QXRSYNC 2 XA 0",
        "QXRSYNC 2 AXY 0", "QXRSYNC 2 AX -1", "QXRSYNC 2 AX 1 ", "QXRSYNC  2 AX 1", "QXRSYNC 2  1",
        "QXRSYNC 2 DA 1", "QXRSYNC 2 AX 99999999999999999999", "QXRSYNC 2 AX 0\r",
        "SSH-2.0-OpenSSH_9.2"})
    EXPECT_EQ(parseOffer(line), std::nullopt) << line;
}

TEST(Handshake, CapabilitiesArePlainWordsOnly) {
  for (const char* word : {".iLsfxCIvu", ""})
    EXPECT_EQ(parseCapabilities(formatCapabilities({word, {}})), (Capabilities{word, {}})) << word;
  EXPECT_EQ(formatCapabilities({".i", {}}), "CAPABILITIES .i");
  for (const char* line : {"CAPABILITIES", "CAPABILITIES ", "CAPABILITIES a b", "CAPABILITIES a;b",
                           "CAPABILITIES --rsh=x", "CAPABILITIES .i/x", "OTHER .i"})
    EXPECT_EQ(parseCapabilities(line), std::nullopt) << line;
}

TEST(Handshake, LimitsTravelWithTheCapabilities) {
  for (const host::CopyPace& pace : {host::CopyPace{500, false}, {0, true}, {1, true}})
    EXPECT_EQ(parseCapabilities(formatCapabilities({".i", pace})), (Capabilities{".i", pace}));
  EXPECT_EQ(formatCapabilities({"", {500, true}}), "CAPABILITIES - 500 1");
  for (const char* line :
       {"CAPABILITIES .i 0 0", "CAPABILITIES .i 5", "CAPABILITIES .i 5 2", "CAPABILITIES .i 05 1",
        "CAPABILITIES .i -5 1", "CAPABILITIES .i 9999999999999999 1", "CAPABILITIES .i x 1"})
    EXPECT_EQ(parseCapabilities(line), std::nullopt) << line;
}

TEST(Handshake, OnlyWhatBothHaveIsAgreedAndNothingBeyondTheLineIsTaken) {
  const host::FdPair in = makePipe();
  const host::FdPair out = makePipe();
  const std::string heard = "QXRSYNC 2 X 77\nrest";
  ASSERT_EQ(::write(in.second.get(), heard.data(), heard.size()), heard.size());
  const Deadline deadline(std::chrono::seconds(5));
  EXPECT_EQ(exchangeOffers(in.first.get(), out.second.get(), everything, deadline),
            (Offer{.acls = false, .xattrs = true, .usedBytes = 77}));
  char said[64] = {};
  EXPECT_GT(::read(out.first.get(), said, sizeof said - 1), 0);
  EXPECT_STREQ(said, "QXRSYNC 2 AXD 12345\n");
  char rest[8] = {};
  EXPECT_EQ(::read(in.first.get(), rest, sizeof rest - 1), 4);
  EXPECT_STREQ(rest, "rest");
}

TEST(Handshake, StrangersAreQuotedInPrintableForm) {
  EXPECT_EQ(afterHearing(""), "the other end of the data channel closed it before the transfer");
  EXPECT_EQ(afterHearing("QXR"), "the other end of the data channel closed it after \"QXR\"");
  EXPECT_EQ(afterHearing(std::string("\x1f\0\xff\\\n", 5)),
            "the other end of the data channel does not run this version of this program: "
            "\"\\x1f\\x00\\xff\\\"");
  EXPECT_EQ(afterHearing(std::string(100000 / 2, 'x')),
            "the other end of the data channel does not run this program: \"" +
                std::string(60, 'x') + "...\"");
}

TEST(Handshake, SilenceEndsAtTheDeadline) {
  const host::FdPair in = makePipe();
  const host::FdPair out = makePipe();
  try {
    exchangeOffers(in.first.get(), out.second.get(), everything,
                   Deadline(std::chrono::milliseconds(50)));
    FAIL() << "agreed with nobody";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), 12);
    EXPECT_STREQ(failure.what(), "the other end of the data channel does not answer");
  }
}

TEST(Handshake, StreamsAreHandedOverOnASocket) {
  const host::FdPair sockets = makeSocketPair();
  const host::FdPair stream = makePipe();
  const int client = sockets.first.get();
  EXPECT_TRUE(carriesDescriptors(client, client));
  EXPECT_FALSE(carriesDescriptors(client, stream.second.get()));
  const Deadline deadline(std::chrono::seconds(5));
  bool taken = false;
  std::thread clientSide([&] {
    const Channel channel{host::Fd(::dup(client)), host::Fd(::dup(client))};
    taken = handOverStreams(channel, stream.first.get(), stream.second.get(), deadline);
  });
  const std::optional<Channel> streams =
      takeStreams(sockets.second.get(), sockets.second.get(), deadline);
  clientSide.join();
  EXPECT_TRUE(taken);
  ASSERT_TRUE(streams);
  EXPECT_EQ(::write(streams->out.get(), "x", 1), 1);
  char heard = 0;
  EXPECT_EQ(::read(stream.first.get(), &heard, 1), 1);
  EXPECT_EQ(heard, 'x');
}

TEST(Handshake, AByteWithoutStreamsIsRefused) {
  const host::FdPair sockets = makeSocketPair();
  ASSERT_EQ(::write(sockets.first.get(), "", 1), 1);
  EXPECT_FALSE(
      takeStreams(sockets.second.get(), sockets.second.get(), Deadline(std::chrono::seconds(5))));
  char said[16] = {};
  EXPECT_EQ(::read(sockets.first.get(), said, sizeof said - 1), 8);
  EXPECT_STREQ(said, "REFUSED\n");
}
