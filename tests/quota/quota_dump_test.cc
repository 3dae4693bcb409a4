#include "quota/quota_dump.h"

#include <gtest/gtest.h>

#include <stdexcept>

using QuotaMgmt::quota_dump_read;
using QuotaMgmt::quota_dump_write;

namespace {

const char kHeaderError[] = "Deserializer detected a malformed quota dump header at line ";

// Why the dump is refused.
std::string refusal(const std::string& dump) {
  std::string limits, graces;
  return quota_dump_read(dump, limits, graces);
}

}  // namespace

TEST(QuotaDumpWriter, HeaderLocatesBothSections) {
  const std::string limits(900, 'l'), graces(250, 'g');
  EXPECT_EQ(quota_dump_write(limits, graces), "limits 0 900\ngraces 900 250\n\n" + limits + graces);
}

TEST(QuotaDumpWriter, EmptySectionsLeaveTheHeaderAlone) {
  EXPECT_EQ(quota_dump_write("", ""), "limits 0 0\ngraces 0 0\n\n");
}

TEST(QuotaDumpReader, AcceptsWhatTheWriterMakes) {
  const std::string bodies[][2] = {
      {"", ""},
      {"limits", ""},
      {"", "graces"},
      {"a\n\nb\n\n", "\n\nc"},  // only the first empty line ends the header
      {std::string("nul\0byte", 8), "\xff\xfe"},
  };
  for (const auto& body : bodies) {
    std::string limits = "old", graces = "old";
    EXPECT_EQ(quota_dump_read(quota_dump_write(body[0], body[1]), limits, graces), "");
    EXPECT_EQ(limits, body[0]);
    EXPECT_EQ(graces, body[1]);
  }
}

TEST(QuotaDumpReader, MissingEmptyLineIsRefused) {
  const std::string text =
      "Deserializer detected a malformed quota dump. Header terminator was not found.";
  EXPECT_EQ(refusal(""), text);
  EXPECT_EQ(refusal("limits 0 5\ngraces 5 5\n"), text);
}

TEST(QuotaDumpReader, UnknownSignatureIsRefused) {
  EXPECT_EQ(refusal("limitz 0 10\n\n"),
            std::string(kHeaderError) + "0: 'limitz 0 10'. Signature was not recognized");
  EXPECT_EQ(refusal("limits 0 0\n 0 10\n\n"),
            std::string(kHeaderError) + "1: ' 0 10'. Signature was not recognized");
}

TEST(QuotaDumpReader, TrailingGarbageIsRefusedAndNamed) {
  EXPECT_EQ(refusal("limits 0 0\ngraces 12x 5\n\n"),
            std::string(kHeaderError) +
                "1: 'graces 12x 5'. Examining '12x'. "
                "Trailing garbage in a numeric value: 'x'");
  EXPECT_EQ(refusal("limits 0 5y z\n\n"), std::string(kHeaderError) +
                                              "0: 'limits 0 5y z'. Examining '5y'. "
                                              "Trailing garbage in a numeric value: 'y'");
  EXPECT_EQ(refusal("limits zero 5\n\n"), std::string(kHeaderError) +
                                              "0: 'limits zero 5'. Examining 'zero'. "
                                              "Trailing garbage in a numeric value: 'zero'");
}

TEST(QuotaDumpReader, ValueOutOfRangeIsRefusedWithItsTab) {
  EXPECT_EQ(refusal("limits 0 99999999999999999999\n\n"), std::string(kHeaderError) +
                                                              "0: 'limits 0 99999999999999999999'. "
                                                              "Examining '99999999999999999999'. "
                                                              "Value is out\tof range");
  // The extreme values themselves count as out of range, whatever follows them.
  EXPECT_EQ(refusal("limits 9223372036854775807 0\n\n"), std::string(kHeaderError) +
                                                             "0: 'limits 9223372036854775807 0'. "
                                                             "Examining '9223372036854775807'. "
                                                             "Value is out\tof range");
  EXPECT_EQ(refusal("limits -9223372036854775808x 0\n\n"),
            std::string(kHeaderError) +
                "0: 'limits -9223372036854775808x 0'. "
                "Examining '-9223372036854775808x'. "
                "Value is out\tof range");
}

TEST(QuotaDumpReader, MissingValueIsRefused) {
  EXPECT_EQ(refusal("limits\n\n"), std::string(kHeaderError) + "0: 'limits'. Value is missing");
  EXPECT_EQ(refusal("limits 0\n\n"), std::string(kHeaderError) + "0: 'limits 0'. Value is missing");
  EXPECT_EQ(refusal("limits  \n\n"), std::string(kHeaderError) + "0: 'limits  '. Value is missing");
  EXPECT_EQ(refusal("limits 0 \n\n"),
            std::string(kHeaderError) + "0: 'limits 0 '. Value is missing");
  // Words are examined in turn.
  EXPECT_EQ(refusal("limits 1x\n\n"),
            std::string(kHeaderError) +
                "0: 'limits 1x'. Examining '1x'. Trailing garbage in a numeric value: 'x'");
}

TEST(QuotaDumpReader, OffsetsCountFromAfterTheTerminator) {
  std::string limits, graces;
  EXPECT_EQ(quota_dump_read("graces 3 2\nlimits 1 2\n\n0123456", limits, graces), "");
  EXPECT_EQ(limits, "12");
  EXPECT_EQ(graces, "34");
}

TEST(QuotaDumpReader, SignAndBlanksOfANumberAreAccepted) {
  std::string limits, graces;
  EXPECT_EQ(quota_dump_read("limits +1 \t2\n\n0123", limits, graces), "");
  EXPECT_EQ(limits, "12");
}

TEST(QuotaDumpReader, OffsetIsCountedFromTheDumpSoANegativeOneReachesTheHeader) {
  std::string limits, graces;
  EXPECT_EQ(quota_dump_read("limits -4 4\n\nbody", limits, graces), "");
  EXPECT_EQ(limits, " 4\n\n");
}

TEST(QuotaDumpReader, SectionThatEndsAfterTheDumpIsCutShort) {
  std::string limits, graces;
  EXPECT_EQ(quota_dump_read("limits 2 100\n\nbody", limits, graces), "");
  EXPECT_EQ(limits, "dy");
  EXPECT_EQ(quota_dump_read("limits 4 1\n\nbody", limits, graces), "");
  EXPECT_EQ(limits, "");
}

TEST(QuotaDumpReader, SectionThatBeginsAfterTheDumpIsARangeError) {
  std::string limits, graces;
  EXPECT_THROW(quota_dump_read("limits 5 1\n\nbody", limits, graces), std::out_of_range);
  EXPECT_THROW(quota_dump_read("limits -100 1\n\nbody", limits, graces), std::out_of_range);
}

TEST(QuotaDumpReader, LaterLineOfTheSameSignatureReplacesTheEarlier) {
  std::string limits, graces = "as it was";
  EXPECT_EQ(quota_dump_read("limits 0 2\nlimits 2 2\n\nbody", limits, graces), "");
  EXPECT_EQ(limits, "dy");
  EXPECT_EQ(graces, "as it was");
}

TEST(QuotaDumpReader, EmptyFirstLineEndsTheWalk) {
  std::string limits = "as it was", graces;
  EXPECT_EQ(quota_dump_read("\n\nlimitz", limits, graces), "");
  EXPECT_EQ(limits, "as it was");
}
