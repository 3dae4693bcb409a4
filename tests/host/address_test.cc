#include "host/address.h"

#include <gtest/gtest.h>

namespace {

TEST(Address, OneAlone) {
  for (const char* good : {"192.0.2.1", "2001:db8::1", "::", "0.0.0.0"}) {
    EXPECT_TRUE(host::isAddress(good)) << good;
  }
  for (const char* none : {"", "foo", "192.0.2.1/24", "192.0.2", "192.0.2.300", "2001:db8:::1"}) {
    EXPECT_FALSE(host::isAddress(none)) << none;
  }
}

TEST(Address, OfAnInterface) {
  for (const char* good : {"192.0.2.10/24", "192.0.2.10", "192.0.2.10/32", "192.0.2.10/1",
                           "2001:db8::5/64", "2001:db8::5/128", "::1"}) {
    EXPECT_TRUE(host::isInterfaceAddress(good)) << good;
  }
  for (const char* none :
       {"", "foo", "/24", "dhcp", "192.0.2.300/24", "192.0.2.5,192.0.2.6", "192.0.2.5/33",
        "192.0.2.5/", "192.0.2.5/0", "192.0.2.5/-1", "192.0.2.5/24x", "192.0.2.5/+24",
        "2001:db8::5/129", "0.0.0.0", "0.0.0.0/0", "::", "::/64"}) {
    EXPECT_FALSE(host::isInterfaceAddress(none)) << none;
  }
}

}  // namespace
