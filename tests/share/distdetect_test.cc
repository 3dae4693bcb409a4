// The script that tells the distribution, on machines made of nothing but the
// files that each distribution has (or, long ago, had).
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "support/scratch_host.h"

using test_support::fileAt;
using test_support::ScratchHost;

namespace {

struct File {
  std::string name;
  std::string contents;
};

struct Case {
  std::string expected;  // empty: not known
  std::vector<File> files;
};

const std::vector<Case> cases = {
    // with os-release
    {"debian-12",
     {{"os-release",
       "PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\nID=debian\n"
       "VERSION_ID=\"12\"\nVERSION_CODENAME=bookworm\n"},
      {"debian_version", "12.5\n"}}},
    {"debian", {{"os-release", "PRETTY_NAME=\"Debian GNU/Linux trixie/sid\"\nID=debian\n"}}},
    {"ubuntu-22.04",
     {{"os-release",
       "NAME=\"Ubuntu\"\nVERSION_ID=\"22.04\"\nID=ubuntu\n"
       "ID_LIKE=debian\n"},
      {"debian_version", "bookworm/sid\n"}}},
    {"redhat-9", {{"os-release", "ID=\"rhel\"\nID_LIKE=\"fedora\"\nVERSION_ID=\"9.3\"\n"}}},
    {"centos-7", {{"os-release", "ID=\"centos\"\nID_LIKE=\"rhel fedora\"\nVERSION_ID=\"7\"\n"}}},
    {"rocky-9", {{"os-release", "ID=\"rocky\"\nVERSION_ID=\"9.3\"\n"}}},
    {"almalinux-9", {{"os-release", "ID=\"almalinux\"\nVERSION_ID='9.3'\n"}}},
    {"oracle-8",
     {{"os-release", "ID=\"ol\"\nVERSION_ID=\"8.9\"\n"},
      {"redhat-release", "Red Hat Enterprise Linux release 8.9 (Ootpa)\n"}}},
    {"fedora-40", {{"os-release", "ID=fedora\nVERSION_ID=40"}}},  // no line end
    {"amazon-2023", {{"os-release", "ID=\"amzn\"\nVERSION_ID=\"2023\"\n"}}},
    {"opensuse-15.5", {{"os-release", "ID=\"opensuse-leap\"\nVERSION_ID=\"15.5\"\n"}}},
    {"opensuse-tumbleweed",
     {{"os-release", "ID=\"opensuse-tumbleweed\"\nVERSION_ID=\"20240101\"\n"}}},
    {"sles-15", {{"os-release", "ID=\"sles\"\nVERSION_ID=\"15.5\"\n"}}},
    {"arch", {{"os-release", "ID=arch\nBUILD_ID=rolling\n"}}},
    {"alpine-3.19",
     {{"os-release", "ID=alpine\nVERSION_ID=3.19.1\n"}, {"alpine-release", "3.19.1\n"}}},
    {"debian-3.1", {{"os-release", "ID=debian\nVERSION_ID=\"3.1\"\n"}}},
    {"sled-15", {{"os-release", "ID=\"sled\"\nVERSION_ID=\"15.4\"\n"}}},
    {"sles-12", {{"os-release", "ID=\"sles_sap\"\nVERSION_ID=\"12.5\"\n"}}},
    {"opensuse-13.2", {{"os-release", "ID=opensuse\nVERSION_ID=\"13.2\"\n"}}},
    {"scientific-7", {{"os-release", "ID=\"scientific\"\nVERSION_ID=\"7.9\"\n"}}},
    {"mageia-9", {{"os-release", "ID=mageia\nVERSION_ID=9  \n"}}},
    // an os-release that does not say who it is, or that is not to be trusted
    {"debian-11", {{"os-release", "NAME=\"Some Appliance\"\n"}, {"debian_version", "11.2\n"}}},
    {"", {{"os-release", "ID=\"a;b\"\nVERSION_ID=1\n"}}},
    {"", {{"os-release", "ID=\"../x\"\nVERSION_ID=1\n"}}},
    {"thing", {{"os-release", "ID=thing\nVERSION_ID=\"1 2/3\"\n"}}},
    // before os-release
    {"redhat-9", {{"redhat-release", "Red Hat Linux release 9 (Shrike)\n"}}},
    {"redhat-7.3", {{"redhat-release", "Red Hat Linux release 7.3 (Valhalla)\n"}}},
    {"redhat-6", {{"redhat-release", "Red Hat Enterprise Linux Server release 6.5 (Santiago)\n"}}},
    {"redhat-4", {{"redhat-release", "Red Hat Enterprise Linux ES release 4 (Nahant Update 8)\n"}}},
    {"centos-5", {{"redhat-release", "CentOS release 5.11 (Final)\n"}}},
    {"centos-7", {{"redhat-release", "CentOS Linux release 7.9.2009 (Core)\n"}}},
    {"oracle-6",
     {{"oracle-release", "Oracle Linux Server release 6.5\n"},
      {"redhat-release", "Red Hat Enterprise Linux Server release 6.5 (Santiago)\n"}}},
    {"redhat-3", {{"redhat-release", "Red Hat Enterprise Linux AS release 3 (Taroon Update 9)\n"}}},
    {"rocky-8", {{"redhat-release", "Rocky Linux release 8.10 (Green Obsidian)\n"}}},
    {"almalinux-8", {{"redhat-release", "AlmaLinux release 8.9 (Midnight Oncilla)\n"}}},
    {"oracle-5",
     {{"enterprise-release", "Enterprise Linux Enterprise Linux Server release 5.5 (Carthage)\n"},
      {"redhat-release", "Red Hat Enterprise Linux Server release 5.5 (Tikanga)\n"}}},
    {"centos-6",
     {{"centos-release", "CentOS release 6.10 (Final)\n"},
      {"redhat-release", "Red Hat Enterprise Linux Server release 5.5 (Tikanga)\n"}}},
    {"fedora-4", {{"redhat-release", "Fedora Core release 4 (Stentz)\n"}}},
    {"fedora-20", {{"fedora-release", "Fedora release 20 (Heisenbug)\n"}}},
    {"scientific-6", {{"redhat-release", "Scientific Linux release 6.5 (Carbon)\n"}}},
    {"suse-9.1", {{"SuSE-release", "SuSE Linux 9.1 (i586)\nVERSION = 9.1\n"}}},
    {"suse-10.1", {{"SuSE-release", "SUSE LINUX 10.1 (X86-64)\nVERSION = 10.1\n"}}},
    {"opensuse-13.1", {{"SuSE-release", "openSUSE 13.1 (x86_64)\nVERSION = 13.1\n"}}},
    {"sles-11", {{"SuSE-release", "SUSE Linux Enterprise Server 11 (x86_64)\nVERSION = 11\n"}}},
    {"sles-9", {{"SuSE-release", "SUSE LINUX Enterprise Server 9 (i586)\nVERSION = 9\n"}}},
    {"sled-10", {{"SuSE-release", "SUSE LINUX ENTERPRISE DESKTOP 10 (i586)\nVERSION = 10\n"}}},
    {"sles-10", {{"SuSE-release", "\nSUSE LINUX ENTERPRISE SERVER 10 (x86_64)\n"}}},
    {"sled-11", {{"SuSE-release", "SUSE Linux Enterprise Desktop 11 (x86_64)\nVERSION = 11\n"}}},
    {"ubuntu-8.04",
     {{"lsb-release", "DISTRIB_ID=Ubuntu\nDISTRIB_RELEASE=8.04\n"},
      {"debian_version", "lenny/sid\n"}}},
    {"debian-7", {{"lsb-release", "DISTRIB_ID=Debian\nDISTRIB_RELEASE=7.11\n"}}},
    {"linuxmint-13", {{"lsb-release", "DISTRIB_ID=LinuxMint\nDISTRIB_RELEASE=13\n"}}},
    {"arch", {{"lsb-release", "DISTRIB_ID=Arch\nDISTRIB_RELEASE=rolling\n"}}},
    {"centos-6",
     {{"lsb-release", "LSB_VERSION=base-4.0-amd64\n"},
      {"redhat-release", "CentOS release 6.10 (Final)\n"}}},
    {"debian-3.1", {{"debian_version", "3.1\n"}}},
    {"debian-5", {{"debian_version", "5.0.10\n"}}},
    {"debian", {{"debian_version", "lenny/sid\n"}}},
    {"alpine-3.4", {{"alpine-release", "3.4.6\n"}}},
    {"slackware-14.2", {{"slackware-version", "Slackware 14.2\n"}}},
    {"arch", {{"arch-release", ""}}},
    {"gentoo", {{"gentoo-release", "Gentoo Base System release 2.2\n"}}},
    {"debian-4", {{"debian_version", "4.0\n"}}},
    // nothing, or nothing that says something
    {"", {}},
    {"", {{"redhat-release", "\n"}}},
    {"", {{"redhat-release", "Some Other Linux release 3\n"}}},
    {"", {{"SuSE-release", ""}}},
};

std::string describe(const Case& wanted) {
  std::string text;
  for (const File& file : wanted.files) text += file.name + ": " + file.contents;
  return text;
}

struct Answer {
  int status = -1;
  std::string out;
};

Answer ask(const std::string& shell) {
  Answer answer;
  FILE* pipe = ::popen((shell + " " QX_DISTDETECT " 2>&1").c_str(), "re");
  if (pipe == nullptr) return answer;
  for (int c = 0; (c = std::fgetc(pipe)) != EOF;) answer.out += static_cast<char>(c);
  const int status = ::pclose(pipe);
  answer.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
  return answer;
}

void checkAllWith(const std::string& shell) {
  if (::access(("/usr/bin/" + shell.substr(0, shell.find(' '))).c_str(), X_OK) != 0)
    GTEST_SKIP() << "there is no " << shell << " on this machine";
  ScratchHost host;
  host.run([&] {
    ::unlink("/usr/lib/os-release");  // of the scratch host
    if (::access("/usr/lib/os-release", F_OK) == 0)
      GTEST_SKIP() << "this machine's own os-release cannot be covered without root";
    for (const Case& wanted : cases) {
      ASSERT_EQ(std::system("rm -f /etc/*release /etc/*version"), 0);
      for (const File& file : wanted.files) makeEntry("/etc", fileAt(file.name, file.contents));
      const Answer answer = ask(shell);
      EXPECT_EQ(answer.out, wanted.expected.empty() ? "" : wanted.expected + "\n")
          << describe(wanted);
      EXPECT_EQ(answer.status, wanted.expected.empty() ? 1 : 0) << describe(wanted);
    }
    ASSERT_EQ(std::system("rm -f /etc/*release /etc/*version"), 0);
    makeEntry("/usr/lib", fileAt("os-release", "ID=rocky\nVERSION_ID=\"9.3\"\n"));
    EXPECT_EQ(ask(shell).out, "rocky-9\n");
  });
}

}  // namespace

// The names are those of the container host's table.
TEST(DistributionDetection, EachNameOfTheTableIsPrintedForSomeServer) {
  std::set<std::string> printed;
  for (const Case& wanted : cases) {
    const size_t dash = wanted.expected.rfind('-');
    const bool hasVersion = dash != std::string::npos && std::isdigit(wanted.expected[dash + 1]);
    printed.insert(wanted.expected.substr(0, hasVersion ? dash : std::string::npos));
  }
  unsigned names = 0;
  for (const auto& entry : std::filesystem::directory_iterator(QX_DISTS)) {
    if (entry.path().extension() != ".conf") continue;
    ++names;
    EXPECT_EQ(printed.count(entry.path().stem()), 1U) << entry.path();
  }
  EXPECT_GE(names, 16U);
}

TEST(DistributionDetection, AllKnownReleasesWithTheMinimalShell) { checkAllWith("dash"); }
TEST(DistributionDetection, AllKnownReleasesWithBash) { checkAllWith("bash --posix"); }
TEST(DistributionDetection, AllKnownReleasesWithBusybox) { checkAllWith("busybox sh"); }
