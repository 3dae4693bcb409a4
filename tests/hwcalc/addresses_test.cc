#include "hwcalc/addresses.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "hwcalc/hw_calc.h"
#include "support/child_test.h"
#include "support/scratch_host.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char SEVERAL[] =
    "3 Several network interfaces were found. All IP addresses for them will be assigned to a "
    "single CT network interface.";

class Interfaces {
 public:
  Interfaces& add(const std::string& name, unsigned flags, const char* address) {
    auto* entry = new hwcalc::ifi_info;
    std::strncpy(entry->name, name.c_str(), sizeof(entry->name) - 1);
    entry->flags = flags;
    if (address != nullptr) {
      sockaddr_in inet{};
      inet.sin_family = AF_INET;
      EXPECT_EQ(inet_pton(AF_INET, address, &inet.sin_addr), 1);
      entry->address = inet;
    }
    last() = entry;
    return *this;
  }
  Interfaces& lastFamily(sa_family_t family) {
    hwcalc::ifi_info* entry = list_;
    while (entry->next != nullptr) entry = entry->next;
    entry->address->sin_family = family;
    return *this;
  }
  ~Interfaces() { hwcalc::free_ifi_info(list_); }

  std::list<std::string> choose(bool containers = false) {
    std::list<QXA::QXACalculateHWNodeWarning> found;
    const std::list<std::string> chosen = hwcalc::chooseAddresses(list_, containers, found);
    warnings.clear();
    for (const auto& warning : found) {
      warnings.push_back(std::to_string(warning.code) + " " + warning.message);
    }
    return chosen;
  }

  std::vector<std::string> warnings;

 private:
  hwcalc::ifi_info*& last() {
    hwcalc::ifi_info** end = &list_;
    while (*end != nullptr) end = &(*end)->next;
    return *end;
  }
  hwcalc::ifi_info* list_ = nullptr;
};

constexpr unsigned ETHERNET = IFF_UP | IFF_BROADCAST;

}  // namespace

TEST(Addresses, NoListGivesNoneAndNoWarning) {
  Interfaces interfaces;
  EXPECT_THAT(interfaces.choose(), IsEmpty());
  EXPECT_THAT(interfaces.warnings, IsEmpty());
}

TEST(Addresses, OneInterfaceGivesItsAddressWithoutWarning) {
  Interfaces interfaces;
  interfaces.add("lo", IFF_UP | IFF_LOOPBACK, "127.0.0.1").add("eth0", ETHERNET, "10.0.0.1");
  EXPECT_THAT(interfaces.choose(), ElementsAre("10.0.0.1"));
  EXPECT_THAT(interfaces.warnings, IsEmpty());
}

TEST(Addresses, ComeInTheOrderOfTheList) {
  Interfaces interfaces;
  interfaces.add("eth1", ETHERNET, "10.0.0.9").add("eth0", ETHERNET, "10.0.0.1");
  EXPECT_THAT(interfaces.choose(), ElementsAre("10.0.0.9", "10.0.0.1"));
  EXPECT_THAT(interfaces.warnings, ElementsAre(SEVERAL));
}

TEST(Addresses, InterfaceThatIsDownIsCountedAndNamed) {
  Interfaces interfaces;
  interfaces.add("eth0", ETHERNET, "10.0.0.1").add("eth1", IFF_BROADCAST, "10.0.0.2");
  EXPECT_THAT(interfaces.choose(), ElementsAre("10.0.0.1"));
  EXPECT_THAT(interfaces.warnings,
              ElementsAre(SEVERAL,
                          "1 The following interfaces will not be migrated, because they were not "
                          "brought up: eth1"));
}

TEST(Addresses, InterfacesThatAreDownAreListedWithCommas) {
  Interfaces interfaces;
  interfaces.add("eth1", 0, "10.0.0.2").add("eth2", 0, "10.0.0.3");
  EXPECT_THAT(interfaces.choose(), IsEmpty());
  EXPECT_THAT(interfaces.warnings,
              ElementsAre(SEVERAL,
                          "1 The following interfaces will not be migrated, because they were not "
                          "brought up: eth1, eth2"));
}

TEST(Addresses, PointToPointAddressesAreSetAside) {
  Interfaces interfaces;
  interfaces.add("tun0", IFF_UP | IFF_POINTOPOINT, "10.9.0.1")
      .add("ppp0", IFF_UP | IFF_POINTOPOINT, "10.9.0.2");
  EXPECT_THAT(interfaces.choose(), IsEmpty());
  EXPECT_THAT(interfaces.warnings,
              ElementsAre(SEVERAL,
                          "1 The following point-to-point addresses will not be set in the CT "
                          "config: 10.9.0.1, 10.9.0.2"));
}

TEST(Addresses, PointToPointAddressesAreTakenWhereContainersRun) {
  Interfaces interfaces;
  interfaces.add("venet0", IFF_UP | IFF_POINTOPOINT, "10.9.0.1");
  EXPECT_THAT(interfaces.choose(true), ElementsAre("10.9.0.1"));
  EXPECT_THAT(interfaces.warnings, IsEmpty());
}

TEST(Addresses, EntriesWithoutIpv4AddressAreNotCounted) {
  Interfaces interfaces;
  interfaces.add("eth0", ETHERNET, "10.0.0.1")
      .add("eth1", ETHERNET, nullptr)
      .add("eth2", ETHERNET, "10.0.0.2")
      .lastFamily(AF_INET6);
  EXPECT_THAT(interfaces.choose(), ElementsAre("10.0.0.1"));
  EXPECT_THAT(interfaces.warnings, IsEmpty());
}

TEST(Addresses, OnlyTheFirst256LoopbackAddressesAreSkippedByIntention) {
  Interfaces interfaces;
  interfaces.add("eth0", ETHERNET, "127.0.0.0")
      .add("eth0", ETHERNET, "127.0.0.255")
      .add("eth0", ETHERNET, "127.0.1.0")
      .add("eth0", ETHERNET, "127.1.0.1");
  EXPECT_THAT(interfaces.choose(), ElementsAre("127.0.1.0", "127.1.0.1"));
}

TEST(Addresses, ContainerSoftwareIsKnownByItsDirectoryInProc) {
  test_support::ScratchHost().run([] {
    EXPECT_FALSE(hwcalc::runsContainers());
    while (umount2("/proc", MNT_DETACH) == 0) {
    }
    ASSERT_EQ(mkdir("/proc/qx", 0755), 0);
    EXPECT_TRUE(hwcalc::runsContainers());
    // What looks for leaks at the process's end needs it.
    ASSERT_EQ(mount("proc", "/proc", "proc", 0, nullptr), 0);
  });
}

namespace {

void command(const std::string& text) { ASSERT_EQ(system(text.c_str()), 0) << text; }

// Interfaces of the machine's own kernel, in a network namespace of the test.
void withInterfaces(const std::function<void()>& body) {
  test_support::runInChild([&] {
    if (unshare(CLONE_NEWNET) != 0) GTEST_SKIP() << "no network namespaces here";
    if (access("/dev/net/tun", R_OK | W_OK) != 0) GTEST_SKIP() << "no /dev/net/tun here";
    if (system("ip tuntap add eth0 mode tap 2>/dev/null") != 0) GTEST_SKIP() << "no tap devices";
    command("ip addr add 10.1.0.1/24 broadcast 10.1.0.255 dev eth0");
    command("ip tuntap add eth1 mode tap && ip addr add 10.2.0.1/24 dev eth1");
    command("ip tuntap add tun0 mode tun && ip addr add 10.3.0.1 peer 10.3.0.2 dev tun0");
    command("ip link set lo up && ip link set eth0 up && ip link set tun0 up");
    command("ip addr add 10.1.0.7/24 dev eth0");
    body();
  });
}

std::string textOf(const std::optional<sockaddr_in>& address) {
  if (!address) return "none";
  char text[INET_ADDRSTRLEN];
  return inet_ntop(AF_INET, &address->sin_addr, text, sizeof(text));
}

}  // namespace

TEST(InterfaceList, HoldsEachAddressWithItsInterface) {
  withInterfaces([] {
    const hwcalc::IfiInfoList list(hwcalc::get_if_inet_info());
    std::vector<std::string> entries;
    for (const hwcalc::ifi_info* entry = list.get(); entry != nullptr; entry = entry->next) {
      entries.push_back(std::string(entry->name) + " " + textOf(entry->address) + " " +
                        textOf(entry->broadcast) + " " + textOf(entry->destination) +
                        ((entry->flags & IFF_UP) != 0 ? " up" : " down") +
                        ((entry->flags & IFF_LOOPBACK) != 0 ? " loopback" : ""));
    }
    EXPECT_THAT(entries, testing::UnorderedElementsAre(
                             "lo 127.0.0.1 none none up loopback",
                             "eth0 10.1.0.1 10.1.0.255 none up", "eth0 10.1.0.7 0.0.0.0 none up",
                             "eth1 10.2.0.1 0.0.0.0 none down", "tun0 10.3.0.1 none 10.3.0.2 up"));
  });
}

TEST(InterfaceList, IsEmptyWithoutAddresses) {
  test_support::runInChild([] {
    if (unshare(CLONE_NEWNET) != 0) GTEST_SKIP() << "no network namespaces here";
    EXPECT_EQ(hwcalc::get_if_inet_info(), nullptr);
  });
}

TEST(GetIPAddresses, ReadsTheSystem) {
  withInterfaces([] {
    QXHWCalc calculator;
    std::list<QXA::QXACalculateHWNodeWarning> warnings;
    EXPECT_THAT(calculator.getIPAddresses(warnings),
                testing::UnorderedElementsAre("10.1.0.1", "10.1.0.7"));
    std::vector<int> codes;
    for (const auto& warning : warnings) codes.push_back(warning.code);
    EXPECT_THAT(codes, ElementsAre(3, 1, 1));
  });
}

TEST(GetNetAdapters, ReadsTheSystem) {
  withInterfaces([] {
    QXHWCalc calculator;
    std::list<QXA::QXACalculateHWNodeWarning> warnings;
    std::vector<QXA::QXANetVEth> interfaces;
    EXPECT_EQ(calculator.getNetAdapters(warnings, interfaces), QXHWCalc::EC_OK);
    ASSERT_EQ(interfaces.size(), 1u);
    std::vector<std::string> addresses;
    for (const auto& address : interfaces[0].addresses) addresses.push_back(address.text);
    EXPECT_THAT(addresses, testing::UnorderedElementsAre("10.1.0.1/24", "10.1.0.7/24"));
  });
}
