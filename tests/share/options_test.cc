#include "share/rsync/options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "share/rsync/failure.h"

using qxrsync::Failure;
using qxrsync::Mode;
using qxrsync::Options;
using qxrsync::parseOptions;
using testing::ElementsAre;

namespace {

std::string refusal(const std::vector<std::string>& arguments) {
  try {
    parseOptions(arguments);
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), 1);
    return failure.what();
  }
  return "accepted";
}

}  // namespace

TEST(Options, ClientCommandLineOfTheMigration) {
  const Options options = parseOptions({"-ESHa", "--numeric-ids", "--delete", "--progress-bar",
                                        "--fdin", "5", "--fdout", "7", "0.0.0.0:/", "/vz/root/101",
                                        "--exclude=/proc/*", "--exclude=/sys/*"});
  EXPECT_EQ(options.mode, Mode::kClient);
  EXPECT_TRUE(options.progressBar);
  EXPECT_EQ(options.fdIn, 5);
  EXPECT_EQ(options.fdOut, 7);
  EXPECT_EQ(options.destination, "/vz/root/101");
  EXPECT_THAT(options.arguments,
              ElementsAre("-ESHa", "--numeric-ids", "--delete", "0.0.0.0:/", "/vz/root/101",
                          "--exclude=/proc/*", "--exclude=/sys/*"));
}

TEST(Options, ServerCommandLineOfTheMigration) {
  const std::vector<std::string> arguments = {"--server", "--sender", "-ESHa", "--numeric-ids",
                                              "--delete", ".",        "/"};
  const Options options = parseOptions(arguments);
  EXPECT_EQ(options.mode, Mode::kServer);
  EXPECT_EQ(options.served, "/");
  EXPECT_EQ(options.arguments, arguments);
}

TEST(Options, ServerCommandLineOfAStockClientIsUntouched) {
  const std::vector<std::string> sender = {"--server", "--sender", "-logDtpre.iLsfxCIvu", ".", "x"};
  EXPECT_EQ(parseOptions(sender).mode, Mode::kUntouched);
  EXPECT_EQ(parseOptions({"--server", "-logDtpre.iLsfxCIvu", ".", "x"}).mode, Mode::kUntouched);
}

TEST(Options, WhatIsNotOursIsUntouched) {
  EXPECT_EQ(parseOptions({}).mode, Mode::kUntouched);
  EXPECT_EQ(parseOptions({"--version"}).mode, Mode::kUntouched);
  EXPECT_EQ(parseOptions({"-a", "x", "y"}).mode, Mode::kUntouched);
  EXPECT_EQ(parseOptions({"-a", "--", "--fdin", "--progress-bar"}).mode, Mode::kUntouched);
}

TEST(Options, ValueMayFollowAnEqualsSign) {
  const Options options = parseOptions({"--fdin=3", "--fdout=3", "h:/", "x"});
  EXPECT_EQ(options.fdIn, 3);
  EXPECT_EQ(options.fdOut, 3);
}

TEST(Options, JoinerTakesTheCapabilitiesFromStocksServerCommandLine) {
  const Options options =
      parseOptions({"--join-channel", "6", "0.0.0.0", "rsync", "--server", "--sender",
                    "-lHogDtpAXrSEe.iLsfxCIvu", "--numeric-ids", ".", "/"});
  EXPECT_EQ(options.mode, Mode::kJoiner);
  EXPECT_EQ(options.handoverFd, 6);
  EXPECT_EQ(options.capabilities, ".iLsfxCIvu");
  EXPECT_EQ(parseOptions({"--join-channel", "6", "h", "rsync", "-lre32.1LsfxC"}).capabilities,
            "32.1LsfxC");
  EXPECT_EQ(parseOptions({"--join-channel", "6", "h", "rsync", "-lr"}).capabilities, "");
}

TEST(Options, TrackerTakesAFolderANumberAndMounts) {
  const Options options = parseOptions({"--track-changes", "/folder", "20", "/", "/srv"});
  EXPECT_EQ(options.mode, Mode::kTracker);
  EXPECT_EQ(options.tracker.folder, "/folder");
  EXPECT_EQ(options.tracker.mostPlaces, 20U);
  EXPECT_EQ(options.tracker.mounts, (std::vector<std::string>{"/", "/srv"}));
  EXPECT_EQ(refusal({"--track-changes", "/folder"}), "--track-changes needs a folder and a number");
}

TEST(Options, BadDescriptorNumbersAreRefusedByName) {
  EXPECT_EQ(refusal({"--fdin", "x", "--fdout", "4"}),
            "the value 'x' of --fdin is not a file descriptor number");
  EXPECT_EQ(refusal({"--fdin", "4", "--fdout", "4x"}),
            "the value '4x' of --fdout is not a file descriptor number");
  EXPECT_EQ(refusal({"--fdin=-1", "--fdout", "4"}),
            "the value '-1' of --fdin is not a file descriptor number");
  EXPECT_EQ(refusal({"--fdin=", "--fdout", "4"}),
            "the value '' of --fdin is not a file descriptor number");
  EXPECT_EQ(refusal({"--fdin=99999999999", "--fdout", "4"}),
            "the value '99999999999' of --fdin is not a file descriptor number");
  EXPECT_EQ(refusal({"--fdout"}), "--fdout needs a file descriptor number");
  EXPECT_EQ(refusal({"--fdin", "3"}), "--fdin is given without --fdout");
  EXPECT_EQ(refusal({"--fdout", "3"}), "--fdout is given without --fdin");
}

TEST(Options, PathForTheShellOptionIsQuoted) {
  EXPECT_EQ(qxrsync::quoteForShellOption("/a b/rsync"), "'/a b/rsync'");
  EXPECT_EQ(qxrsync::quoteForShellOption("/it's"), "'/it''s'");
}
