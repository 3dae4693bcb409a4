#include "host/host_name.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(HostName, LabelsAreOfLettersDigitsAndHyphensInside) {
  for (const char* good : {"a", "web-1.example.org", "1a", "host_name", "A.b"}) {
    EXPECT_TRUE(host::isHostName(good)) << good;
  }
  EXPECT_TRUE(host::isHostName(std::string(63, 'a') + "." + std::string(63, 'b')));
  for (const char* bad :
       {"", "-a", "a-", "a..b", "a.", ".a", "a b", "a;b", "a-.b", "a/b", "\xe4"}) {
    EXPECT_FALSE(host::isHostName(bad)) << bad;
  }
  EXPECT_FALSE(host::isHostName(std::string(64, 'a')));
  std::string longest;
  while (longest.size() < 252) longest += "a.";
  EXPECT_TRUE(host::isHostName(longest + "a"));
  EXPECT_FALSE(host::isHostName(longest + "aa"));
}

}  // namespace
