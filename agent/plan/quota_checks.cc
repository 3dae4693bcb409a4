#include "agent/plan/quota_checks.h"

#include <algorithm>

#include "agent/plan/amounts.h"

namespace agent {

namespace {

std::string counted(long long count, const std::string& what) {
  return countText(count) + " " + what + (count == 1 ? "" : "s");
}

std::string ownersText(long long users, long long groups) {
  if (groups == 0) return counted(users, "user");
  if (users == 0) return counted(groups, "group");
  return counted(users, "user") + " and " + counted(groups, "group");
}

std::string gracesText(long long blocks, long long inodes) {
  return periodText(blocks) + " for blocks, " + periodText(inodes) + " for inodes";
}

bool haveLimits(const SurveyedQuotas& quotas) { return quotas.users > 0 || quotas.groups > 0; }

std::string unreportedText(const SurveyedQuotas& quotas) {
  const auto& list = quotas.unreported;
  const auto groups = std::count_if(list.begin(), list.end(),
                                    [](const OwnerLimits& limits) { return limits.group; });
  return "The server's report of its quotas leaves out the limits of " +
         ownersText(static_cast<long long>(list.size()) - groups, groups) + ", first " +
         (list[0].group ? "group " : "user ") + std::to_string(list[0].id) +
         ", mostly because they own nothing: they are added when the copy is complete.";
}

}  // namespace

const SurveyedQuotas* travellingQuotas(const Survey& survey) {
  for (const SurveyedQuotas& quotas : survey.quotas) {
    if (quotas.mountPoint == "/") return &quotas;
  }
  return nullptr;
}

std::vector<std::pair<std::string, std::string>> quotaRows(const Survey& survey) {
  const SurveyedQuotas* quotas = travellingQuotas(survey);
  if (!quotas) return {};
  return {{"of users", countText(quotas->users) + " with limits"},
          {"of groups", countText(quotas->groups) + " with limits"},
          {"grace periods", gracesText(quotas->userBlockGrace, quotas->userInodeGrace)}};
}

std::vector<Finding> quotaFindings(const Survey& survey, const NodeFacts& node) {
  std::vector<Finding> findings;
  for (const SurveyedQuotas& quotas : survey.quotas) {
    if (quotas.mountPoint == "/" || !haveLimits(quotas)) continue;
    findings.push_back({Severity::kWarning, "The disk quotas of " + quotas.mountPoint + " (" +
                                                ownersText(quotas.users, quotas.groups) +
                                                " with limits) do not arrive: the container has "
                                                "one file system, with those of /."});
  }
  const SurveyedQuotas* quotas = travellingQuotas(survey);
  if (!quotas) return findings;
  if (node.quotasOff) {
    findings.push_back({Severity::kBlock,
                        "The server's disk quotas are on, and the container takes none: "
                        "DISK_QUOTA is 'no' on the node. Take it out there, or turn the server's "
                        "quotas off (quotaoff -ug /)."});
  } else if (haveLimits(*quotas) && node.storage != "ext4") {
    findings.push_back({Severity::kWarning,
                        "Disk limits of users and groups are kept with the container and not "
                        "enforced: the node's STORAGE is '" +
                            node.storage + "', and only ext4 can."});
  }
  if (quotas->groups > 0 && (quotas->groupBlockGrace != quotas->userBlockGrace ||
                             quotas->groupInodeGrace != quotas->userInodeGrace)) {
    findings.push_back(
        {Severity::kWarning, "The grace periods of groups (" +
                                 gracesText(quotas->groupBlockGrace, quotas->groupInodeGrace) +
                                 ") do not arrive: groups get those of users."});
  }
  if (!quotas->unreported.empty()) {
    findings.push_back({Severity::kNote, unreportedText(*quotas)});
  }
  if (quotas->unlisted > 0) {
    findings.push_back({Severity::kWarning, "The limits of " + countText(quotas->unlisted) +
                                                " more users and groups that the report leaves "
                                                "out do not arrive: they are too many."});
  }
  if (quotas->accountsOnly) {
    findings.push_back({Severity::kNote,
                        "The server's kernel cannot list its disk limits: limits of users and "
                        "groups that own nothing and have no account are not known, and do not "
                        "arrive."});
  }
  return findings;
}

}  // namespace agent
