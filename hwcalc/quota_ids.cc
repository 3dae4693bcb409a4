#include "hwcalc/quota_ids.h"

#include <cstring>

#include "expand/files.h"
#include "expand/strings.h"
#include "framework/request.h"
#include "hwcalc/hw_calc.h"
#include "quota/quota_phys.h"
#include "quota/quota_report.h"

namespace hwcalc {

namespace {

bool isQuotaOption(const std::string& option) {
  return option == "usrquota" || option == "grpquota" || option == "quota";
}

void addIds(const QuotaMgmt::Quotas& quotas, std::set<unsigned>& ids) {
  for (const auto& [id, quota] : quotas.entries) ids.insert(id);
}

// Adds the ids of a device; none when its quotas cannot be read.
void addIdsOf(const std::string& device, std::set<unsigned>& users, std::set<unsigned>& groups) {
  std::string limits;
  std::string graces;
  QuotaMgmt::Quotas userQuotas;
  QuotaMgmt::Quotas groupQuotas;
  if (QuotaMgmt::quota_get_phys(device.c_str(), limits, graces) != 0) return;
  if (QuotaMgmt::limits_parse_phys(limits, &userQuotas, &groupQuotas) != 0) return;
  addIds(userQuotas, users);
  addIds(groupQuotas, groups);
}

}  // namespace

QuotaDevices findQuotaDevices(const std::vector<MountEntry>& table) {
  QuotaDevices found;
  for (const MountEntry& entry : table) {
    for (const std::string& option : Expand::split(",", entry.options, 0)) {
      if (!isQuotaOption(option)) continue;
      found.devices.push_back(entry.device);
      if (option == "quota") found.plainQuota = true;
      break;
    }
  }
  return found;
}

std::uint32_t countQuotaIds(const std::set<unsigned>& users, const std::set<unsigned>& groups,
                            bool plainQuota) {
  const std::size_t count = plainQuota ? 2 * users.size() : users.size() + groups.size();
  return static_cast<std::uint32_t>(count);
}

}  // namespace hwcalc

QXHWCalc::ec_t QXHWCalc::calcQuotaUGIDLimit(PhysParams* params) {
  std::string table;
  if (const int error = Expand::get_file("/etc/mtab", table)) {
    return setError(EC_MTAB, "Error opening '/etc/mtab': %s", std::strerror(error));
  }
  const hwcalc::QuotaDevices found = hwcalc::findQuotaDevices(hwcalc::parseMountTable(table));
  std::set<unsigned> users;
  std::set<unsigned> groups;
  // What fails here is no error of the request that the calculation serves.
  const QXL::QXLRequestContextScope scope(QXL::QXLRequestContextPrototype::createInstance());
  for (const std::string& device : found.devices) hwcalc::addIdsOf(device, users, groups);
  params->quotaugidlimit = hwcalc::countQuotaIds(users, groups, found.plainQuota);
  return EC_OK;
}
