#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "expand/caller.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::list<std::string> merged(std::list<std::string> base, const std::list<std::string>& add) {
  Expand::CallerExec::mergeEnvironments(base, add);
  return base;
}

}  // namespace

TEST(MergeEnvironments, ReferenceLengthensAndNewNamesAreAdded) {
  EXPECT_THAT(merged({"PATH=/bin", "HOME=/root"}, {"PATH=%PATH%:/sbin", "LANG=C"}),
              ElementsAre("HOME=/root", "LANG=C", "PATH=/bin:/sbin"));
}

TEST(MergeEnvironments, PlainValueDoesNotReplaceIntended) {
  EXPECT_THAT(merged({"PATH=/usr/bin"}, {"PATH=/bin"}), ElementsAre("PATH=/usr/bin"));
}

TEST(MergeEnvironments, LaterEntryOfOneListReplacesAnEarlierOne) {
  EXPECT_THAT(merged({"A=1", "A=2"}, {"B=1", "B=2"}), ElementsAre("A=2", "B=2"));
}

TEST(MergeEnvironments, NamesAndValuesAreStripped) {
  EXPECT_THAT(merged({" A \t=\r\n x y "}, {"\tB= "}), ElementsAre("A=x y", "B="));
}

TEST(MergeEnvironments, ValueMayContainTheEqualsSign) {
  EXPECT_THAT(merged({"OPTS=a=b=c"}, {}), ElementsAre("OPTS=a=b=c"));
}

TEST(MergeEnvironments, EntryWithoutEqualsSignHasAnEmptyValue) {
  EXPECT_THAT(merged({"ALONE"}, {}), ElementsAre("ALONE="));
}

TEST(MergeEnvironments, ReferenceToAnotherVariable) {
  EXPECT_THAT(merged({"A=1", "B=2"}, {"A=<%B%>"}), ElementsAre("A=<2>", "B=2"));
}

TEST(MergeEnvironments, OnlyOneReferenceIsExpanded) {
  EXPECT_THAT(merged({"A=1", "B=2"}, {"A=%A%%B%%A%"}), ElementsAre("A=1%B%%A%", "B=2"));
}

TEST(MergeEnvironments, MissingReferenceComesOutEmptyAndIsAdded) {
  EXPECT_THAT(merged({"A=1"}, {"A=x%NONE%y"}), ElementsAre("A=xy", "NONE="));
}

TEST(MergeEnvironments, UnfinishedOrEmptyReferenceIsIgnored) {
  EXPECT_THAT(merged({"A=1"}, {"A=100%"}), ElementsAre("A=1"));
  EXPECT_THAT(merged({"A=1"}, {"A=%%A%"}), ElementsAre("A=1"));
}

TEST(MergeEnvironments, ReferenceInANewVariableIsNotExpanded) {
  EXPECT_THAT(merged({"A=1"}, {"B=%A%"}), ElementsAre("A=1", "B=%A%"));
}

TEST(MergeEnvironments, NewNamesAreThereForReferencesOfLaterNames) {
  EXPECT_THAT(merged({"Z=0"}, {"A=new", "Z=%A%:%Z%"}), ElementsAre("A=new", "Z=new:%Z%"));
}

TEST(MergeEnvironments, NothingToMergeSortsTheBase) {
  EXPECT_THAT(merged({"B=2", "A=1"}, {}), ElementsAre("A=1", "B=2"));
  EXPECT_THAT(merged({}, {}), IsEmpty());
}
