#include "agent/plan/disk_limits.h"

#include <algorithm>
#include <limits>

#include "agent/plan/amounts.h"
#include "agent/plan/find_record.h"
#include "agent/plan/survey.h"

namespace agent {

namespace {

constexpr long long kBlock = 1024;  // bytes

long long withRoom(long long number, int percent) {
  const long long room = number / 100 * percent + number % 100 * percent / 100;
  return number > std::numeric_limits<long long>::max() - room
             ? std::numeric_limits<long long>::max()
             : number + room;
}

}  // namespace

CopiedFigures copiedFigures(const Survey& survey) {
  CopiedFigures copied;
  copied.counted = survey.scanComplete;
  const auto add = [](long long& sum, long long number) {
    // A claim of another machine: neither negative nor beyond the largest number.
    if (__builtin_add_overflow(sum, std::max(number, 0LL), &sum)) {
      sum = std::numeric_limits<long long>::max();
    }
  };
  for (const SurveyedFileSystem& mount : survey.fileSystems) {
    if (!mount.copied) continue;
    add(copied.bytes, mount.bytes);
    add(copied.files, mount.files);
  }
  // What was counted file by file has them left out already.
  if (copied.counted) return copied;
  for (const SwapFile& swap : survey.swapFiles) {
    copied.bytes -= std::clamp(swap.bytes, 0LL, copied.bytes);
    copied.files -= std::min(copied.files, 1LL);
  }
  return copied;
}

long long limitOf(const QXA::QXAEnvConfig& config, const std::string& name) {
  std::optional<std::set<QXL::QXLQoS>> records;
  config.getQoSes(records);
  if (!records) return -1;
  const QXL::QXLQoS* const found = findRecord(*records, name);
  return found ? found->limit : -1;
}

std::vector<RaisedLimit> raiseDiskLimits(QXA::QXAEnvConfig& measured, const CopiedFigures& copied,
                                         bool ownFileSystem) {
  std::vector<RaisedLimit> raised;
  std::optional<std::set<QXL::QXLQoS>> records;
  measured.getQoSes(records);
  if (!records) return raised;
  const int percent = ownFileSystem ? kFileSystemRoomPercent : kLimitRoomPercent;
  const auto raise = [&](const char* name, long long used, const char* what, const auto& shown) {
    const QXL::QXLQoS* const found = findRecord(*records, name);
    const long long enough = withRoom(used, percent);
    // A limit that is merely a number is left as it was measured while it holds all.
    if (!found || found->limit >= (ownFileSystem ? enough : used)) return;
    QXL::QXLQoS record = *found;
    raised.push_back({name, enough,
                      std::string("The container's ") + what + " is " + shown(enough) + ", " +
                          std::to_string(percent) + " % more than is copied: the measured one, " +
                          shown(record.limit) + ", would be too small."});
    record.barrier = record.limit = enough;
    records->erase(record);
    records->insert(record);
  };
  const auto blocks = [](long long number) {
    return bytesText(number > std::numeric_limits<long long>::max() / kBlock
                         ? std::numeric_limits<long long>::max()
                         : number * kBlock);
  };
  const long long copiedBlocks = copied.bytes / kBlock + (copied.bytes % kBlock != 0);
  raise("diskspace", copiedBlocks, "disk limit", blocks);
  raise("diskinodes", copied.files, "limit of inodes", countText);
  measured.setQoSes(records);
  return raised;
}

}  // namespace agent
