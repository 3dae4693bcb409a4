#include "quota/quota_diff.h"

namespace QuotaMgmt {

void quota_mkdiff(const Quotas* current, const Quotas* wanted, Quotas* toClear, Quotas* toSet) {
  *toClear = Quotas();
  *toSet = Quotas();
  for (const auto& [id, quota] : wanted->entries) {
    const auto found = current->entries.find(id);
    if (found == current->entries.end() || found->second != quota) toSet->entries[id] = quota;
  }
  for (const auto& [id, quota] : current->entries) {
    if (wanted->entries.count(id) == 0) toClear->entries[id] = quota;
  }
}

}  // namespace QuotaMgmt
