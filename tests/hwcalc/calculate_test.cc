// The driver: measuring steps in order, and the configuration that comes of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>

#include "framework/env_config.h"
#include "hwcalc/hw_calc.h"
#include "measured_host.h"

using test_support::ScratchHost;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char DETECT[] = "/usr/local/share/qxlinmigrate/distdetect-common.sh";

ScratchHost wholeHost() {
  ScratchHost host = measuredHost();
  host.file("/etc/mtab", "/dev/sda1 / ext3 rw,usrquota 0 0\nnone /proc proc rw 0 0\n");
  host.file("/dev/sda1", "");
  host.tool("/usr/sbin/repquota", {.out = "*** Report for user quotas on device /dev/sda1\n----\n"
                                          "#0 -- 1 0 0 1 0 0\n#1000 -- 1 5 6 1 7 8\n"});
  host.tool("/usr/sbin/edquota");
  host.tool(DETECT, {.out = "redhat-9\n"});
  host.file("/etc/resolv.conf", "nameserver 10.0.0.53\nsearch beta.org alpha.org beta.org\n");
  return host;
}

QXHWCalc oneSample() {
  QXHWCalc calculator;
  calculator.measureTime = 0;
  return calculator;
}

void setHost(const std::string& name) {
  ASSERT_EQ(sethostname(name.c_str(), name.size()), 0);
  unsetenv("QXA_TMPDIR");
}

std::string printed(const QXHWCalc::PhysParams& params) {
  QXHWCalc::PhysParams copy = params;
  testing::internal::CaptureStdout();
  QXHWCalc().printPhysParams(&copy);
  std::fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

}  // namespace

TEST(Calculator, StartsWithDefaultsForAlone) {
  const QXHWCalc calculator;
  EXPECT_GT(calculator.measureTime, 0u);
  EXPECT_LT(calculator.measureTime, 30u);
  EXPECT_GT(calculator.measureInterval, 0);
  EXPECT_EQ(calculator.procScale, 1.0f);
  EXPECT_EQ(calculator.diskScale, 1.0f);
  EXPECT_THAT(calculator.distScripts, IsEmpty());
  EXPECT_STREQ(calculator.errorText, "");
}

TEST(Calculator, CodesHaveTheirNumbers) {
  EXPECT_EQ(QXHWCalc::EC_OK, 0u);
  EXPECT_EQ(QXHWCalc::EC_NETCONF, 1u);
  EXPECT_EQ(QXHWCalc::EC_EXEC, 2u);
  EXPECT_EQ(QXHWCalc::EC_PROC, 3u);
  EXPECT_EQ(QXHWCalc::EC_MTAB, 4u);
}

// Agents are built against this order.
TEST(Calculator, FieldsComeInOrder) {
  const QXHWCalc c;
  const void* const fields[] = {&c.measureTime, &c.measureInterval, &c.procScale,
                                &c.diskScale,   &c.distScripts,     c.errorText};
  EXPECT_TRUE(std::is_sorted(std::begin(fields), std::end(fields)));
}

TEST(PhysParams, FieldsComeInOrder) {
  const QXHWCalc::PhysParams p;
  const void* const fields[] = {
      &p.numproc,     &p.avnumproc,     &p.numtcpsock,     &p.numothersock, &p.numfile,
      &p.privvmpages, &p.lockedpages,   &p.shmpages,       &p.numflock,     &p.numiptent,
      &p.diskspace,   &p.diskinodes,    &p.quotaugidlimit, &p.distribution, &p.ip_addresses,
      &p.hostname,    &p.reserved_list, &p.notes,          &p.nameservers,  &p.search_domains};
  EXPECT_TRUE(std::is_sorted(std::begin(fields), std::end(fields)));
}

TEST(PhysParams, StartsEmpty) {
  const QXHWCalc::PhysParams p;
  EXPECT_EQ(p.numproc + p.numtcpsock + p.numothersock + p.numfile + p.privvmpages + p.lockedpages +
                p.shmpages + p.numflock + p.numiptent + p.diskspace + p.diskinodes +
                p.quotaugidlimit,
            0u);
  EXPECT_EQ(p.avnumproc, 0.0f);
}

TEST(SetError, FormatsAndReturnsTheCode) {
  QXHWCalc calculator;
  EXPECT_EQ(calculator.setError(QXHWCalc::EC_PROC, "%s %d", "text", 7), QXHWCalc::EC_PROC);
  EXPECT_STREQ(calculator.errorText, "text 7");
}

TEST(SetError, LongTextIsCutAndTerminated) {
  QXHWCalc calculator;
  EXPECT_EQ(sizeof(calculator.errorText), 4096u);
  calculator.setError(QXHWCalc::EC_EXEC, "%s", std::string(5000, 'x').c_str());
  EXPECT_EQ(calculator.errorText, std::string(4095, 'x'));
  calculator.setError(QXHWCalc::EC_EXEC, "%s", std::string(4095, 'y').c_str());
  EXPECT_EQ(calculator.errorText, std::string(4095, 'y'));
}

TEST(PrintPhysParams, WritesEveryFieldOnALine) {
  QXHWCalc::PhysParams params;
  params.numproc = 1;
  params.avnumproc = 99;
  params.numtcpsock = 2;
  params.numothersock = 3;
  params.numfile = 4;
  params.privvmpages = 5;
  params.lockedpages = 6;
  params.shmpages = 7;
  params.numflock = 8;
  params.numiptent = 9;
  params.diskspace = 4294967295u;
  params.diskinodes = 11;
  params.quotaugidlimit = 12;
  params.distribution = "redhat-9";
  params.ip_addresses = {"10.0.0.1", "10.0.0.2"};
  params.hostname = "server";
  params.reserved_list = {"reserved"};
  params.notes.warnings = {{3, "warning"}};
  params.nameservers = {"10.0.0.53", "10.0.1.53"};
  params.search_domains = {"a.org", "b.org"};
  EXPECT_EQ(printed(params),
            "numproc: 1\nnumtcpsock: 2\nnumothersock: 3\nnumfile: 4\nprivvmpages: 5\n"
            "lockedpages: 6\nshmpages: 7\nnumflock: 8\nnumiptent: 9\ndiskspace: 4294967295\n"
            "diskinodes: 11\nquotaugidlimit: 12\ndistribution: redhat-9\n"
            "ip_addresses: 10.0.0.1 10.0.0.2\nhostname: server\n"
            "nameservers: 10.0.0.53 10.0.1.53\nsearch_domains: a.org b.org\n");
}

TEST(PhysParams, CopyHoldsEverything) {
  QXHWCalc::PhysParams params;
  params.numproc = 1;
  params.ip_addresses = {"10.0.0.1"};
  params.reserved_list = {"reserved"};
  params.notes.warnings = {{3, "warning"}};
  params.notes.excludes = {{"/proc/*", false}};
  const QXHWCalc::PhysParams copy = params;
  params.ip_addresses.clear();
  params.notes.warnings.clear();
  EXPECT_EQ(copy.numproc, 1u);
  EXPECT_THAT(copy.ip_addresses, ElementsAre("10.0.0.1"));
  EXPECT_THAT(copy.reserved_list, ElementsAre("reserved"));
  ASSERT_EQ(copy.notes.warnings.size(), 1u);
  EXPECT_EQ(copy.notes.warnings.front().message, "warning");
  ASSERT_EQ(copy.notes.excludes.size(), 1u);
  EXPECT_EQ(copy.notes.excludes.front().path, "/proc/*");
}

TEST(CompressExcludes, IsEmptyByIntention) {
  EXPECT_THAT(QXHWCalc().compressExcludes({{"/proc/*", false}, {"/mnt", true}}), IsEmpty());
}

TEST(CalcPhysParams, FillsTheRecord) {
  wholeHost().run([] {
    setHost("old-server");
    QXHWCalc calculator = oneSample();
    QXHWCalc::PhysParams params;
    EXPECT_EQ(calculator.calcPhysParams(&params), QXHWCalc::EC_OK) << calculator.errorText;
    EXPECT_EQ(params.numproc, 42u);
    EXPECT_EQ(params.quotaugidlimit, 2u);
    EXPECT_EQ(params.distribution, "redhat-9");
    EXPECT_EQ(params.hostname, "old-server");
    EXPECT_THAT(params.nameservers, ElementsAre("10.0.0.53"));
    EXPECT_THAT(params.search_domains, ElementsAre("beta.org", "alpha.org", "beta.org"));
    ASSERT_EQ(params.notes.excludes.size(), 1u);
    EXPECT_EQ(params.notes.excludes.front().path, "/proc/*");
    EXPECT_THAT(params.reserved_list, IsEmpty());
  });
}

TEST(CalcPhysParams, StepsRunInOrder) {
  const ScratchHost host = wholeHost();
  host.run([&] {
    QXHWCalc calculator = oneSample();
    QXHWCalc::PhysParams params;
    calculator.calcPhysParams(&params);
    std::vector<std::string> programs;
    for (const auto& words : host.callWords()) programs.push_back(words[0]);
    EXPECT_THAT(programs,
                ElementsAre("/usr/bin/ps", "/usr/bin/ls", "/usr/bin/ipcs", "/usr/sbin/iptables",
                            "/usr/sbin/ip", "/usr/bin/df", "/usr/bin/df", "/usr/sbin/repquota",
                            "/usr/sbin/edquota", DETECT));
  });
}

TEST(CalcPhysParams, WarningsDoNotFailTheCalculation) {
  ScratchHost host = wholeHost();
  host.tool(DETECT, {.status = 1});
  host.file("/etc/fstab", "/dev/sda9 /old reiserfs rw 0 0\n");
  host.run([] {
    QXHWCalc calculator = oneSample();
    QXHWCalc::PhysParams params;
    EXPECT_EQ(calculator.calcPhysParams(&params), QXHWCalc::EC_OK);
    EXPECT_EQ(params.distribution, "");
    EXPECT_EQ(params.diskinodes, 1000000u);
    ASSERT_GE(params.notes.warnings.size(), 2u);
    EXPECT_EQ(params.notes.warnings.front().code, 0);
    EXPECT_EQ(params.notes.warnings.back().code, 4);
  });
}

TEST(CalcPhysParams, MissingMountTableEndsIt) {
  ScratchHost host = measuredHost();
  host.tool(DETECT, {.out = "redhat-9\n"});
  host.run([] {
    QXHWCalc calculator = oneSample();
    QXHWCalc::PhysParams params;
    EXPECT_EQ(calculator.calcPhysParams(&params), QXHWCalc::EC_MTAB);
    EXPECT_STREQ(calculator.errorText, "Error opening '/etc/mtab': No such file or directory");
    EXPECT_EQ(params.numproc, 42u);
    EXPECT_EQ(params.distribution, "");
    EXPECT_EQ(params.hostname, "");
  });
}

TEST(Calculate, FailingFirstStepEndsItWithTheCommandsOutput) {
  ScratchHost host = wholeHost();
  host.tool("/usr/bin/wc", {.status = 1, .err = "cannot count\n"});
  host.run([&] {
    QXHWCalc calculator = oneSample();
    QXHWCalc::PhysParams params;
    QXA::QXAEnvConfig config;
    const unsigned code = calculator.calculate(config, &params);
    EXPECT_EQ(code, 2u);
    EXPECT_STREQ(calculator.errorText, "Error running 'ps ax | wc -l':\ncannot count\n");
    EXPECT_EQ(params.quotaugidlimit, 0u);
    EXPECT_EQ(params.distribution, "");
    EXPECT_THAT(params.ip_addresses, IsEmpty());
    EXPECT_EQ(params.hostname, "");
    EXPECT_THAT(host.calls(), testing::UnorderedElementsAre("/usr/bin/ps\tax", "/usr/bin/wc\t-l"));
    std::optional<std::set<QXL::QXLQoS>> qoses;
    config.getQoSes(qoses);
    EXPECT_FALSE(qoses.has_value());
    std::optional<std::string> mode;
    config.getSLMMode(mode);
    EXPECT_FALSE(mode.has_value());
  });
}

TEST(Calculate, WritesTheConfiguration) {
  wholeHost().run([] {
    setHost("old-server");
    QXHWCalc calculator = oneSample();
    QXHWCalc::PhysParams params;
    QXA::QXAEnvConfig config;
    EXPECT_EQ(calculator.calculate(config, &params), QXHWCalc::EC_OK) << calculator.errorText;

    std::optional<std::string> text;
    config.getSLMMode(text);
    EXPECT_EQ(text, "all");
    config.getHostname(text);
    EXPECT_EQ(text, "old-server");
    std::optional<std::set<QXL::QXLQoS>> qoses;
    config.getQoSes(qoses);
    ASSERT_TRUE(qoses.has_value());
    EXPECT_EQ(qoses->size(), 27u);
    std::optional<QXA::QXADistribution> distribution;
    config.getDistribution(distribution);
    EXPECT_EQ(distribution, (QXA::QXADistribution{"redhat", "9"}));
    std::set<std::string> domains;
    config.getStringListAttr(domains, 1558);
    EXPECT_THAT(domains, ElementsAre("alpha.org", "beta.org"));
    std::optional<std::list<std::string>> nameservers;
    config.getNameservers(nameservers);
    ASSERT_TRUE(nameservers.has_value());
    EXPECT_THAT(*nameservers, ElementsAre("10.0.0.53"));
    std::optional<std::vector<QXA::QXANetVEth>> interfaces;
    config.getNetVEths(interfaces);
    EXPECT_TRUE(interfaces.has_value());
  });
}

TEST(Calculate, RefusedHostNameIsOneWithoutText) {
  wholeHost().run([] {
    setHost("no host name!");
    QXHWCalc calculator = oneSample();
    QXHWCalc::PhysParams params;
    QXA::QXAEnvConfig config;
    EXPECT_EQ(calculator.calculate(config, &params), 1u);
    EXPECT_STREQ(calculator.errorText, "");
    EXPECT_EQ(params.hostname, "no host name!");
  });
}

namespace {

QXHWCalc::PhysParams named(const std::string& hostname) {
  QXHWCalc::PhysParams params;
  params.hostname = hostname;
  return params;
}

}  // namespace

TEST(CalcVPSConf, AddressesAreSetInOrder) {
  QXHWCalc::PhysParams params = named("server");
  params.ip_addresses = {"10.0.0.9", "10.0.0.1"};
  QXA::QXAEnvConfig config;
  EXPECT_EQ(QXHWCalc().calcVPSConf(params, config), 0);
  std::optional<std::vector<QXL::QXLIPAddress>> addresses;
  config.getAddresses(addresses);
  ASSERT_TRUE(addresses.has_value());
  EXPECT_THAT(*addresses,
              ElementsAre(QXL::QXLIPAddress("10.0.0.9"), QXL::QXLIPAddress("10.0.0.1")));
}

TEST(CalcVPSConf, NoAddressesAreNotPresent) {
  QXA::QXAEnvConfig config;
  config.setAddresses(std::vector<QXL::QXLIPAddress>{QXL::QXLIPAddress("10.0.0.1")});
  EXPECT_EQ(QXHWCalc().calcVPSConf(named("server"), config), 0);
  std::optional<std::vector<QXL::QXLIPAddress>> addresses;
  config.getAddresses(addresses);
  EXPECT_FALSE(addresses.has_value());
}

TEST(CalcVPSConf, WithoutResolverSettingsTheConfigurationKeepsItsOwn) {
  QXA::QXAEnvConfig config;
  config.setNameservers(std::list<std::string>{"192.0.2.53"});
  config.setStringListAttr({"kept.org"}, 1558);
  EXPECT_EQ(QXHWCalc().calcVPSConf(named("server"), config), 0);
  std::optional<std::list<std::string>> nameservers;
  config.getNameservers(nameservers);
  ASSERT_TRUE(nameservers.has_value());
  EXPECT_THAT(*nameservers, ElementsAre("192.0.2.53"));
  std::set<std::string> domains;
  config.getStringListAttr(domains, 1558);
  EXPECT_THAT(domains, ElementsAre("kept.org"));
}

TEST(CalcVPSConf, RefusedHostNameLeavesWhatWasSetBefore) {
  QXHWCalc::PhysParams params = named("no host name!");
  params.distribution = "redhat-9";
  params.ip_addresses = {"10.0.0.1"};
  params.nameservers = {"10.0.0.53"};
  QXA::QXAEnvConfig config;
  EXPECT_EQ(QXHWCalc().calcVPSConf(params, config), 1);
  std::optional<std::set<QXL::QXLQoS>> qoses;
  config.getQoSes(qoses);
  EXPECT_TRUE(qoses.has_value());
  std::optional<QXA::QXADistribution> distribution;
  config.getDistribution(distribution);
  EXPECT_TRUE(distribution.has_value());
  std::optional<std::vector<QXL::QXLIPAddress>> addresses;
  config.getAddresses(addresses);
  EXPECT_TRUE(addresses.has_value());
  std::optional<std::string> hostname;
  config.getHostname(hostname);
  EXPECT_FALSE(hostname.has_value());
  std::optional<std::list<std::string>> nameservers;
  config.getNameservers(nameservers);
  EXPECT_FALSE(nameservers.has_value());
}

TEST(CalcVPSConf, FactorsOfTheCalculatorAreUsed) {
  QXHWCalc calculator;
  calculator.procScale = 2.0f;
  calculator.diskScale = 3.0f;
  QXHWCalc::PhysParams params = named("server");
  params.diskspace = 1000;
  QXA::QXAEnvConfig config;
  calculator.calcVPSConf(params, config);
  std::optional<std::set<QXL::QXLQoS>> qoses;
  config.getQoSes(qoses);
  ASSERT_TRUE(qoses.has_value());
  std::map<std::string, long long> limits;
  for (const QXL::QXLQoS& qos : *qoses) limits[qos.name] = qos.limit;
  EXPECT_EQ(limits["numproc"], 480);
  EXPECT_EQ(limits["diskspace"], 3300);
}

TEST(TuneVPSConf, ChangesNothing) {
  QXA::QXAEnvConfig config;
  EXPECT_EQ(QXHWCalc().tuneVPSConf(config), 0);
  std::optional<std::set<QXL::QXLQoS>> qoses;
  config.getQoSes(qoses);
  EXPECT_FALSE(qoses.has_value());
}
