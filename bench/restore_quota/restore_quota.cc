// The stage restoreQuota for a server with 3,000 users that have limits: reading the
// dump and setting the limits of a container, against one setquota for each user, started
// in the same way.
//
//   restore_quota CTID USERS MOUNT
//
// Runs where qxquota is installed and the container has no limits yet (see run). MOUNT is a
// file system with a quota file, whose users setquota gives the same limits. Prints both
// times and the ratio. Ends with 1 when the container's limits took 5 seconds or more.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "expand/runscript.h"
#include "framework/request.h"
#include "quota/formatted.h"
#include "quota/quota_dump.h"
#include "quota/quota_report.h"
#include "quota/quota_vz.h"
#include "quota/quota_vz_stat.h"

namespace {

using QuotaMgmt::formatted;

constexpr unsigned kFirstUser = 1000;
constexpr double kLimitSeconds = 5.0;

[[noreturn]] void die(const std::string& why) {
  std::fprintf(stderr, "restore_quota: %s\n", why.c_str());
  std::exit(2);
}

// What repquota prints on a server with so many users.
std::string report(unsigned users) {
  std::string text =
      "*** Report for user quotas on device /dev/vda1\n"
      "Block grace time: 7days; Inode grace time: 7days\n"
      "                        Block limits                File limits\n"
      "User            used    soft    hard  grace    used  soft  hard  grace\n"
      "----------------------------------------------------------------------\n";
  for (unsigned i = 0; i < users; ++i) {
    text += formatted("#%u    --  %u  %u  %u  1  %u  %u\n", kFirstUser + i, 4 * i, 1000 + i,
                      2000 + i, 10 + i, 20 + i);
  }
  return text;
}

// As the stage does it.
void restore(unsigned ctid, const std::string& dump) {
  std::string limits, graces;
  const std::string problem = QuotaMgmt::quota_dump_read(dump, limits, graces);
  if (!problem.empty()) die(problem);
  QuotaMgmt::Quotas users, groups;
  if (QuotaMgmt::limits_parse_phys(limits, &users, &groups) != 0 ||
      QuotaMgmt::quota_put_vz(ctid, users, groups) != 0) {
    die(QXL::QXLRequestContextPrototype::getCurrent()->getLastErrorText());
  }
}

void setEach(unsigned users, const char* mount) {
  for (unsigned i = 0; i < users; ++i) {
    std::string output, errors;
    const std::string command = formatted("setquota -u %u %u %u %u %u %s", kFirstUser + i, 1000 + i,
                                          2000 + i, 10 + i, 20 + i, mount);
    if (Expand::runscript(command, output, errors) != 0) die(command + ": " + errors);
  }
}

// The table that the tool prints has all of them.
void check(unsigned ctid, unsigned users) {
  std::string table;
  QuotaMgmt::Quotas found, groups;
  if (QuotaMgmt::quota_get_vz(ctid, table) != 0 ||
      QuotaMgmt::quota_parse_vz(table, &found, &groups) != 0) {
    die("the container's limits cannot be read");
  }
  for (unsigned i = 0; i < users; ++i) {
    const auto user = found.entries.find(kFirstUser + i);
    if (user == found.entries.end() || user->second.blockHard != 2000 + i) {
      die(formatted("user %u does not have its limits", kFirstUser + i));
    }
  }
}

double secondsOf(const std::function<void()>& work) {
  const auto began = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) die("three arguments are expected: CTID USERS MOUNT");
  const auto ctid = static_cast<unsigned>(std::atoi(argv[1]));
  const auto users = static_cast<unsigned>(std::atoi(argv[2]));
  const std::string dump = QuotaMgmt::quota_dump_write(report(users), "");
  const double ours = secondsOf([&] { restore(ctid, dump); });
  check(ctid, users);
  const double peer = secondsOf([&] { setEach(users, argv[3]); });
  std::printf("%-34s %8.2f s   %6.2f ms each   limit %.0f s%s\n", "restoreQuota", ours,
              1000 * ours / users, kLimitSeconds, ours < kLimitSeconds ? "" : ", EXCEEDED");
  std::printf("%-34s %8.2f s   %6.2f ms each\n", "setquota, once for each user", peer,
              1000 * peer / users);
  std::printf("%-34s %8.2f\n", "ratio", ours / peer);
  return ours < kLimitSeconds ? 0 : 1;
}
