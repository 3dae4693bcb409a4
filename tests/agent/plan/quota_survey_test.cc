// Which limits a server's report of its quotas leaves out.

#include "agent/plan/quota_survey.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

agent::SurveyedQuotas quotasOf(const char* mountPoint) {
  agent::SurveyedQuotas quotas;
  quotas.mountPoint = mountPoint;
  return quotas;
}

TEST(QuotaSurvey, WhoHasLimitsAndOwnsNothingIsNotReported) {
  agent::SurveyedQuotas quotas = quotasOf("/");
  addOwner({{false, 1000, 1, 2, 3, 4}, true}, true, quotas);
  addOwner({{false, 1001, 0, 2, 0, 0}, false}, true, quotas);
  addOwner({{true, 50, 0, 0, 0, 4}, false}, true, quotas);
  EXPECT_EQ(quotas.users, 2);
  EXPECT_EQ(quotas.groups, 1);
  EXPECT_THAT(quotas.unreported, ElementsAre(Field(&agent::OwnerLimits::id, 1001),
                                             Field(&agent::OwnerLimits::id, 50)));
}

TEST(QuotaSurvey, WhoHasNoLimitsDoesNotCount) {
  agent::SurveyedQuotas quotas = quotasOf("/");
  addOwner({{false, 0, 0, 0, 0, 0}, true}, true, quotas);
  addOwner({{true, 5, 0, 0, 0, 0}, false}, true, quotas);
  EXPECT_EQ(quotas.users + quotas.groups, 0);
  EXPECT_THAT(quotas.unreported, IsEmpty());
}

TEST(QuotaSurvey, NobodyIsReportedWhereTheMountOptionsHaveNoQuotas) {
  agent::SurveyedQuotas quotas = quotasOf("/");
  addOwner({{false, 1000, 1, 2, 3, 4}, true}, false, quotas);
  EXPECT_EQ(quotas.unreported.size(), 1U);
}

TEST(QuotaSurvey, LimitsOfOtherFileSystemsAreOnlyCounted) {
  agent::SurveyedQuotas quotas = quotasOf("/home");
  addOwner({{false, 1000, 1, 2, 3, 4}, false}, true, quotas);
  EXPECT_EQ(quotas.users, 1);
  EXPECT_THAT(quotas.unreported, IsEmpty());
}

TEST(QuotaSurvey, TheListHasABound) {
  agent::SurveyedQuotas quotas = quotasOf("/");
  for (long long id = 0; id < static_cast<long long>(agent::kMostUnreported) + 3; ++id) {
    addOwner({{false, id, 1, 0, 0, 0}, false}, true, quotas);
  }
  EXPECT_EQ(quotas.unreported.size(), agent::kMostUnreported);
  EXPECT_EQ(quotas.unlisted, 3);
}

TEST(QuotaSurvey, TheMountOptionsSayWhatIsReported) {
  EXPECT_TRUE(agent::reportsKind("rw,usrquota", false));
  EXPECT_TRUE(agent::reportsKind("rw,quota", false));
  EXPECT_TRUE(agent::reportsKind("grpquota,rw", true));
  EXPECT_FALSE(agent::reportsKind("rw,quota,usrquota", true));
  EXPECT_FALSE(agent::reportsKind("rw,usrjquota=aquota.user,jqfmt=vfsv1", false));
  EXPECT_FALSE(agent::reportsKind("rw,noquota", false));
}

TEST(QuotaSurvey, APlaceWithoutAQuotaHasNone) {
  agent::SurveyedQuotas quotas;
  EXPECT_FALSE(agent::surveyQuotas("proc", "/proc", "rw", quotas));
  EXPECT_FALSE(agent::surveyQuotas("none", "/no/such/place", "rw", quotas));
}

}  // namespace
