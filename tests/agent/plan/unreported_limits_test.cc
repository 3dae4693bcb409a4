// Limits that a server's report leaves out, added to the container.

#include "agent/plan/unreported_limits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/scratch_host.h"

namespace {

using test_support::ScratchHost;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<std::string> add(const std::vector<agent::OwnerLimits>& limits) {
  std::vector<std::string> said;
  agent::addUnreportedLimits(101, limits, [&](const std::string& text) { said.push_back(text); });
  return said;
}

TEST(UnreportedLimits, AreSetOneByOne) {
  ScratchHost host;
  host.tool("/usr/sbin/qxquota");
  host.run([&] {
    EXPECT_THAT(add({{false, 2201, 1, 2, 3, 4}, {true, 4294967294, 0, 0, 0, 9}}),
                ElementsAre("The limits of 2 users and groups that the server's report leaves out "
                            "were added."));
    EXPECT_THAT(host.calls(),
                ElementsAre("/usr/sbin/qxquota\tsetlimit2\t101\t-u\t2201\t1\t2\t3\t4",
                            "/usr/sbin/qxquota\tsetlimit2\t101\t-g\t4294967294\t0\t0\t0\t9"));
  });
}

TEST(UnreportedLimits, ThatNoOwnerCanHaveArePassedOver) {
  ScratchHost host;
  host.tool("/usr/sbin/qxquota");
  host.run([&] {
    EXPECT_THAT(add({{false, -1, 1, 2, 3, 4}, {false, 4294967295, 1, 2, 3, 4}, {true, 7, 1, -2}}),
                IsEmpty());
    EXPECT_THAT(host.calls(), IsEmpty());
  });
}

TEST(UnreportedLimits, ThatAreRefusedAreToldOf) {
  ScratchHost host;
  host.tool("/usr/sbin/qxquota", {.status = 11, .err = "qxquota: no space\n"});
  host.run([&] {
    EXPECT_THAT(add({{false, 7, 1, 2, 3, 4}, {false, 8, 1, 2, 3, 4}}),
                ElementsAre(HasSubstr("2 users and groups could not be added: ")));
    EXPECT_THAT(add({{false, 7, 1, 2, 3, 4}}), ElementsAre(HasSubstr("no space")));
  });
}

TEST(UnreportedLimits, NothingIsSaidWhereThereAreNone) { EXPECT_THAT(add({}), IsEmpty()); }

}  // namespace
