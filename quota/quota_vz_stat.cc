#include "quota/quota_vz_stat.h"

#include <cstdlib>
#include <vector>

#include "expand/strings.h"

namespace QuotaMgmt {

namespace {

typedef std::vector<unsigned long long> Numbers;

// The numbers after the kind that begins a line; none when anything among them is
// not a number.
Numbers numbersOf(const std::vector<std::string>& fields) {
  Numbers numbers;
  for (std::size_t i = 1; i < fields.size(); ++i) {
    if (fields[i].find_first_not_of("0123456789") != std::string::npos) return {};
    numbers.push_back(std::strtoull(fields[i].c_str(), nullptr, 10));
  }
  return numbers;
}

// Fields after the kind: block grace, inode grace.
void addGraces(const Numbers& numbers, Quotas& target) {
  if (numbers.size() != 2) return;
  target.blockGrace = numbers[0];
  target.inodeGrace = numbers[1];
}

// Fields after the kind: id, then used, soft, hard and grace of blocks, then of
// inodes.
void addObject(const Numbers& numbers, Quotas& target) {
  if (numbers.size() != 9) return;
  Quota& quota = target.entries[static_cast<unsigned>(numbers[0])];
  quota.blockSoft = numbers[2];
  quota.blockHard = numbers[3];
  quota.blockGrace = numbers[4];
  quota.inodeSoft = numbers[6];
  quota.inodeHard = numbers[7];
  quota.inodeGrace = numbers[8];
}

}  // namespace

int quota_parse_vz(const std::string& text, Quotas* users, Quotas* groups) {
  void (*add)(const Numbers&, Quotas&) = nullptr;
  for (std::string line : Expand::split("\n", text, 0)) {
    if (line.find("User/group grace times") != std::string::npos) {
      add = addGraces;
    } else if (line.find("User/group objects") != std::string::npos) {
      add = addObject;
    } else if (add) {
      Expand::collapse(line);
      const std::vector<std::string> fields = Expand::split(" ", line, 0);
      add(numbersOf(fields), fields[0] == "user" ? *users : *groups);
    }
  }
  return 0;
}

}  // namespace QuotaMgmt
