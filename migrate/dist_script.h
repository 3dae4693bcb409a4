// The table of distributions that a migration can adapt to life in a container.
#ifndef QX_MIGRATE_DIST_SCRIPT_H
#define QX_MIGRATE_DIST_SCRIPT_H

#include <optional>
#include <string>

#include "framework/env_config.h"

namespace P2V {

/// Where the table is: one NAME-VERSION.conf or NAME.conf per distribution, and the
/// scripts they name under "scripts/".
constexpr char kDistsDirectory[] = "/etc/sysconfig/qx-scripts/dists";

/// The script run on a copied system.
constexpr char kPostMigrate[] = "POST_MIGRATE";

/// The path of the distribution's script for a key, or an empty text when the
/// distribution, its file or the key is missing or the file is malformed. Whether
/// the script exists is not looked at.
std::string findDistScript(const std::optional<QXA::QXADistribution>& distribution,
                           const std::string& key);

/// The distribution as messages name it: "name" or "name-version"; empty for none.
std::string distributionText(const std::optional<QXA::QXADistribution>& distribution);

}  // namespace P2V

#endif
