#include "host/netlink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <set>

#include "framework/qxnet.h"
#include "host/error.h"
#include "host/file.h"
#include "host/leases.h"
#include "support/scratch_host.h"

namespace {

using test_support::ScratchHost;
using testing::ElementsAre;

// The scratch host with a network of its own: two ends of a cable.
void runOnNetwork(ScratchHost host, const std::function<void()>& body) {
  host.run([&body] {
    ASSERT_EQ(unshare(CLONE_NEWNET), 0);
    ASSERT_EQ(system("ip link add left address 02:00:00:00:00:01 type veth peer name right &&"
                     "ip link set lo up && ip link set left up"),
              0);
    body();
  });
}

TEST(Netlink, AddressesOfAnotherProcessAreItsOwn) {
  runOnNetwork(ScratchHost(), [] {
    const pid_t other = fork();
    if (other == 0) {
      if (unshare(CLONE_NEWNET) != 0) _exit(1);
      if (system("ip link set lo up && ip address add 192.0.2.9/24 dev lo") != 0) _exit(1);
      kill(getpid(), SIGSTOP);
      _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(other, &status, WUNTRACED), other);
    ASSERT_TRUE(WIFSTOPPED(status));
    const auto textsOf = [](const std::vector<host::NetAddress>& addresses) {
      std::set<std::string> texts;
      for (const host::NetAddress& address : addresses) texts.insert(address.text);
      return texts;
    };
    EXPECT_THAT(textsOf(host::readAddressesOf(other)), testing::Contains("192.0.2.9"));
    EXPECT_THAT(textsOf(host::readAddresses()), testing::Not(testing::Contains("192.0.2.9")));
    EXPECT_THROW(host::readAddressesOf(0), host::Error);
    kill(other, SIGKILL);
    waitpid(other, &status, 0);
  });
}

struct Found {
  std::string name;
  std::string mac;
  bool up;
  bool dhcp;
  std::vector<std::string> addresses;
};

std::vector<Found> interfaces() {
  qxnet_filter_t* filter = qxnet_get_simple_filter();
  qxnet_info_t* info = qxnet_get_info(filter);
  std::vector<Found> found;
  for (const qxnet_info_t* at = info; at != nullptr; at = at->next) {
    Found one{at->name, at->mac, (at->flags & IFF_UP) != 0, at->dhcp != 0, {}};
    for (const qxnet_address_t* a = at->addresses; a != nullptr; a = a->next) {
      EXPECT_EQ(a->family == AF_INET6, std::string(a->text).find(':') != std::string::npos);
      one.addresses.push_back(std::string(a->text) + "/" + std::to_string(a->prefix));
    }
    found.push_back(one);
  }
  qxnet_release_info(info);
  qxnet_release_filter(filter);
  return found;
}

Found interface(const std::string& name) {
  for (const Found& one : interfaces()) {
    if (one.name == name) return one;
  }
  ADD_FAILURE() << "no interface " << name;
  return {};
}

TEST(Qxnet, ListsInterfacesWithTheirAddressesButNotLoopback) {
  runOnNetwork(ScratchHost(), [] {
    ASSERT_EQ(system("ip address add 192.0.2.7/24 dev left &&"
                     "ip address add 192.0.2.8/32 dev left &&"
                     "ip address add 2001:db8::7/64 dev left nodad"),
              0);
    std::set<std::string> names;
    for (const Found& one : interfaces()) names.insert(one.name);
    EXPECT_EQ(names.count("lo"), 0u);
    const Found left = interface("left");
    EXPECT_EQ(left.mac, "02:00:00:00:00:01");
    EXPECT_TRUE(left.up);
    EXPECT_FALSE(left.dhcp);
    EXPECT_THAT(left.addresses, ElementsAre("192.0.2.7/24", "192.0.2.8/32", "2001:db8::7/64"));
    EXPECT_FALSE(interface("right").up);
    EXPECT_TRUE(interface("right").addresses.empty());
  });
}

TEST(Qxnet, AddressWithALifetimeCameByDhcp) {
  runOnNetwork(ScratchHost(), [] {
    ASSERT_EQ(system("ip address add 192.0.2.7/24 dev left valid_lft 600 preferred_lft 600 &&"
                     "ip address add 2001:db8::7/64 dev right valid_lft 600 preferred_lft 600"),
              0);
    EXPECT_TRUE(interface("left").dhcp);
    EXPECT_FALSE(interface("right").dhcp) << "a router's advertisement is no DHCP";
  });
}

TEST(Qxnet, LeaseOfTheInterfacesOwnAddressCountsAndNoOther) {
  constexpr char kLease[] =
      "lease {\n  interface \"left\";\n  fixed-address 192.0.2.7;\n}\n"
      "lease {\n  interface \"right\";\n  fixed-address 192.0.2.9;\n}\n";
  ScratchHost host;
  host.file("/var/lib/dhcp/dhclient.leases", kLease);
  runOnNetwork(host, [] {
    ASSERT_EQ(system("ip address add 192.0.2.7/24 dev left &&"
                     "ip address add 192.0.2.10/24 dev right"),
              0);
    EXPECT_TRUE(interface("left").dhcp);
    EXPECT_FALSE(interface("right").dhcp);
  });
}

TEST(Qxnet, NothingToShowIsNullWithoutAnError) {
  ScratchHost().run([] {
    ASSERT_EQ(unshare(CLONE_NEWNET), 0);
    for (const Found& one : interfaces()) {
      ASSERT_EQ(system(("ip link delete " + one.name).c_str()), 0);
    }
    qxnet_filter_t* filter = qxnet_get_simple_filter();
    errno = EIO;
    EXPECT_EQ(qxnet_get_info(filter), nullptr);
    EXPECT_EQ(errno, 0);
    qxnet_release_filter(filter);
  });
}

TEST(Leases, DhclientBlockMustMatchInterfaceAndAddressTogether) {
  constexpr char kText[] =
      "lease {\n  interface \"eth0\";\n  fixed-address 192.0.2.7;\n  option x 1;\n}\n"
      "lease {\n  fixed-address 192.0.2.9;\n  interface \"eth1\";\n}\n";
  EXPECT_TRUE(host::dhclientLeaseGrants(kText, "eth0", "192.0.2.7"));
  EXPECT_TRUE(host::dhclientLeaseGrants(kText, "eth1", "192.0.2.9"));
  EXPECT_FALSE(host::dhclientLeaseGrants(kText, "eth0", "192.0.2.9"));
  EXPECT_FALSE(host::dhclientLeaseGrants(kText, "eth", "192.0.2.7"));
  EXPECT_FALSE(host::dhclientLeaseGrants("", "eth0", ""));
}

TEST(Leases, OfOtherClientsAreFoundByIndexAndByName) {
  ScratchHost()
      .file("/run/systemd/netif/leases/3", "# private\nADDRESS=192.0.2.3\nNETMASK=x\n")
      .file("/var/lib/NetworkManager/internal-0a1b-eth0.lease", "ADDRESS=192.0.2.4\n")
      .run([] {
        EXPECT_TRUE(host::hasLease("any", 3, "192.0.2.3"));
        EXPECT_FALSE(host::hasLease("any", 4, "192.0.2.3"));
        EXPECT_FALSE(host::hasLease("any", 3, "192.0.2.33"));
        EXPECT_TRUE(host::hasLease("eth0", 9, "192.0.2.4"));
        EXPECT_FALSE(host::hasLease("th0", 9, "192.0.2.4"));
      });
}

TEST(Netlink, TruncatedAndSenselessMessagesArePassedOver) {
  std::string bytes;
  for (int i = 0; i < 400; ++i) {
    bytes += static_cast<char>(i * 37);
    host::parseLinks(bytes);
    host::parseAddresses(bytes);
  }
  EXPECT_TRUE(host::parseLinks("").empty());
  EXPECT_TRUE(host::parseAddresses(std::string(64, '\0')).empty());
}

}  // namespace
