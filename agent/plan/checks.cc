#include "agent/plan/checks.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "agent/framework/validation.h"
#include "agent/plan/amounts.h"
#include "agent/plan/disk_limits.h"
#include "agent/plan/quota_checks.h"
#include "agent/plan/survey_mounts.h"
#include "host/id_map.h"

namespace agent {

namespace {

constexpr long long kUnlimited = std::numeric_limits<long long>::max();
// An image that is fuller than this from the start is warned of.
constexpr int kFullestPercent = 80;

std::string bare(const std::string& address) { return address.substr(0, address.find('/')); }

// The checks, a function each. Each adds what it finds.
class Checks {
 public:
  Checks(const PlanFacts& facts, Plan& plan) : facts_(facts), plan_(plan) {}

  void all() {
    container();
    rsync();
    space();
    excludes();
    addresses();
    distribution();
    services();
    bootable();
    mounts();
    quotas();
    ids();
    files();
    nested();
    hostname();
    memory();
    // They hold for every container of the node: no reason to think twice about this one.
    for (const std::string& weakness : facts_.node.weaknesses) note("The node: " + weakness + ".");
    for (const MeasureWarning& warning : facts_.measurement.warnings) warn(warning.text);
    for (const std::string& text : facts_.measurement.notes) note(text);
    for (const std::string& text : facts_.notes) note(text);
  }

 private:
  void add(Severity severity, const std::string& text) {
    plan_.findings.push_back({severity, text});
  }
  void block(const std::string& text) { add(Severity::kBlock, text); }
  void warn(const std::string& text) { add(Severity::kWarning, text); }
  void note(const std::string& text) { add(Severity::kNote, text); }

  void container() {
    const std::string id = std::to_string(facts_.ctid);
    const NodeFacts& node = facts_.node;
    if (!node.interruption.empty()) {
      warn("Container " + id + " was " + node.interruption + ".");
    } else if (node.containerExists) {
      block("Container " + id + " exists on this node already: give another --ctid.");
    } else if (node.areaExists) {
      warn("The private area " + node.privateArea +
           " exists already: the copy goes into it, over what it holds.");
    } else if (node.keptExists && node.keptIsRemoved) {
      note("What an earlier migration has copied, " + node.privateArea +
           ".migrated, is removed first: what that frees is not counted as free.");
    } else if (node.keptExists) {
      note("The migration goes on from what an earlier one has copied, " + node.privateArea +
           ".migrated.");
    }
    if (!node.placeProblem.empty()) block("The node refuses a place: " + node.placeProblem + ".");
    if (node.interruption.empty() && !node.containerExists && node.configExists) {
      warn("Container " + id + " has a configuration file already: it will be replaced.");
    }
    if (!facts_.node.lockHolder.empty()) {
      block("Container " + id + " is locked by " + facts_.node.lockHolder + ": wait for its end.");
    }
  }

  void rsync() {
    const host::RsyncProblem& problem = facts_.node.rsync;
    if (problem.text.empty()) return;
    if (problem.tolerable) {
      warn("The node receives with an rsync that should not be trusted (OLD_RSYNC): " +
           problem.text + ".");
    } else {
      block("The node cannot receive: " + problem.text + ".");
    }
  }

  // The hard limit of that name; the largest number when there is none.
  long long limit(const char* name) const {
    for (const PlannedLimit& row : plan_.limits) {
      if (row.name == name && row.hard != "unlimited") {
        return strtoll(row.hard.c_str(), nullptr, 10);
      }
    }
    return kUnlimited;
  }

  // What the container is promised and what the server uses, against what there is.
  void memory() {
    const Measurement& measured = facts_.measurement;
    const NodeFacts& node = facts_.node;
    const long long promised = limit("slmmemorylimit");
    const long long used =
        static_cast<long long>(measured.privvmpages) * static_cast<long long>(measured.pageSize);
    if (promised != kUnlimited && node.memoryBytes > 0 && promised > node.memoryBytes) {
      warn("The container is promised " + bytesText(promised) + " of memory, and the node has " +
           bytesText(node.memoryBytes) + ".");
    }
    if (promised < used) {
      warn("The server's programs use " + bytesText(used) +
           " of memory of their own, and the container's limit is " + bytesText(promised) +
           ": some of them would be killed. Give a larger SLMMEMORYLIMIT in --config.");
    }
    if (node.processors > 0 && facts_.survey.processors > node.processors) {
      warn("The server has " + countText(facts_.survey.processors) +
           " processors, and the node has " + countText(node.processors) + ".");
    }
  }

  void space() {
    const NodeFacts& node = facts_.node;
    const auto compare = [&](long long needed, long long left, long long reserve,
                             const std::string& what, const auto& shown) {
      const long long free = std::max(left - reserve, 0LL);
      if (free < needed) {
        block("Not enough " + what + " on the node: " + shown(needed) + " are needed, " +
              shown(left) + " are free" +
              (reserve > 0 ? ", of which " + shown(reserve) + " are its RESERVE" : "") +
              ". Make room, or leave out more with --exclude.");
      } else if (free - needed < needed / 100 * kSpaceMarginPercent) {
        warn("Hardly any " + what + " to spare on the node: the copy leaves " +
             shown(free - needed) + ", less than " + std::to_string(kSpaceMarginPercent) +
             " % of it.");
      }
    };
    compare(plan_.bytes, node.freeBytes, node.reservedBytes, "disk space", bytesText);
    // An image has inodes of its own.
    const bool image = node.storage == "ext4";
    if (node.freeInodes >= 0 && !image) {
      compare(plan_.files, node.freeInodes, node.reservedInodes, "inodes", countText);
    }
    // An image of that size cannot hold more; a directory can.
    const Severity severity = image ? Severity::kBlock : Severity::kWarning;
    if (image && limit("diskspace") == kUnlimited) {
      block("The node keeps containers in ext4 images (STORAGE): give a size with --diskspace.");
    }
    const auto enough = [](long long needed) {
      return std::to_string(needed) + ":" +
             std::to_string(needed + needed / 100 * kSpaceMarginPercent);
    };
    const long long blocks = plan_.bytes / 1024;
    if (limit("diskspace") < blocks) {
      add(severity, "The container's disk limit is " + bytesText(limit("diskspace") * 1024) +
                        ", and " + bytesText(plan_.bytes) +
                        " are copied: give --diskspace, such as " + enough(blocks) + ".");
    } else if (image && limit("diskspace") / 100 * kFullestPercent < blocks) {
      const long long size = blocks / 100 * (100 + kFileSystemRoomPercent);
      warn("The container's disk is more than " + std::to_string(kFullestPercent) +
           " % full from the start, " + bytesText(plan_.bytes) + " of " +
           bytesText(limit("diskspace") * 1024) + ": give --diskspace, such as " +
           std::to_string(size) + ":" + std::to_string(size) + ".");
    }
    if (limit("diskinodes") < plan_.files) {
      add(severity, "The container's limit is " + countText(limit("diskinodes")) + " inodes, and " +
                        countText(plan_.files) + " files are copied: give --diskinodes, such as " +
                        enough(plan_.files) + ".");
    }
    if (!plan_.counted) {
      note("There are too many files to look at each: sizes are those of the file systems.");
    }
  }

  void excludes() {
    for (const PlannedExclude& exclude : plan_.excludes) {
      const std::string problem = checkExclusion(exclude.path);
      if (!problem.empty()) block("Cannot be left out: " + problem + ".");
    }
  }

  void addresses() {
    const std::vector<std::string>& addresses = plan_.addresses;
    if (addresses.empty()) warn("The container gets no address: give --ip.");
    for (const std::string& address : addresses) {
      if (address == "auto" && !facts_.node.hasAddressPool) {
        block(
            "There are no addresses for --ip auto: set IP_POOL=\"FIRST-LAST/PREFIX\" in "
            "/etc/qx/qx.conf, or give an address.");
      }
      if (address == "auto" && !facts_.node.addressProblems.empty()) {
        block("No address can be chosen for --ip auto, as it is not known which ones are free.");
      }
      const auto taken = facts_.node.addresses.find(bare(address));
      if (taken == facts_.node.addresses.end()) continue;
      block("Address " + bare(address) + " is in use by " + taken->second + ".");
    }
    for (const std::string& problem : facts_.node.addressProblems) {
      warn("The addresses of a container are not known, one of them may be in use: " + problem +
           ".");
    }
    const auto& own = facts_.measurement.addresses;
    bool isToldGateway = facts_.node.hasGateway || addresses.empty();
    for (const std::string& address : addresses) {
      if (address == "dhcp") isToldGateway = true;
      if (std::find(own.begin(), own.end(), bare(address)) == own.end()) continue;
      // With its address, the server's gateway is kept.
      isToldGateway = true;
      note("The server has the address " + bare(address) +
           " as well: turn it off before the container is started.");
    }
    if (!isToldGateway) {
      note(
          "The container has no gateway and reaches only its own net: set GATEWAY in "
          "/etc/qx/qx.conf, or in --config.");
    }
  }

  void distribution() {
    if (plan_.distribution.empty()) {
      return block("The server's distribution is not known: give --distribution NAME-VERSION.");
    }
    const NodeFacts& node = facts_.node;
    if (!node.distributionProblem.empty()) {
      block("The node cannot use its file for " + plan_.distribution + ": " +
            node.distributionProblem + ".");
    } else if (node.distributionScript.empty()) {
      std::string known;
      for (const std::string& name : node.distributions)
        known += (known.empty() ? "" : ", ") + name;
      block("The node has no script for " + plan_.distribution + "; it knows: " +
            (known.empty() ? "none" : known) + ". Give it one with POST_MIGRATE in " +
            node.distributionFile + ", or give another --distribution.");
    } else if (!node.distributionScriptExists) {
      block("The script for " + plan_.distribution + " is missing: " + node.distributionScript +
            ".");
    }
  }

  void services() {
    const Survey& survey = facts_.survey;
    for (const std::string& name : facts_.services) {
      if (name == "ssh" || name == "sshd") {
        warn("Service " + name +
             " stays stopped when the migration succeeds: nobody can log in to the server any "
             "more, except at its console.");
      }
      const auto& scripts = survey.initScripts;
      if (std::find(scripts.begin(), scripts.end(), name) == scripts.end()) {
        std::string running;
        for (const std::string& other : survey.runningServices) {
          running += (running.empty() ? "" : ", ") + other;
        }
        block("Service " + name + " has no script in the server's /etc/init.d." +
              (running.empty() ? "" : " These have one, and run: " + running + "."));
      }
    }
  }

  // Whether the copy's init can run here.
  void bootable() {
    const long long version = facts_.survey.systemdVersion;
    if (version == 0) return;
    const NodeFacts& node = facts_.node;
    if (node.cgroupV2 && !node.cgroupV1 && version < 233) {
      block("The server's systemd " + std::to_string(version) +
            " cannot run on a node that has control groups v2 only; 233 can. Boot the node with "
            "systemd.unified_cgroup_hierarchy=0.");
    }
    if (node.cgroupV1 && !node.cgroupV2 && version > 255) {
      block("The server's systemd " + std::to_string(version) +
            " cannot run on a node that has control groups v1 only; 255 can. Boot the node with "
            "systemd.unified_cgroup_hierarchy=1.");
    }
    // Privileged containers are without the mount calls of Linux 5.2, which no AppArmor rule
    // of Debian's kernels confines. Since 258, which asks for Linux 5.4, systemd cannot do
    // without (seen with 262: journald, networkd and most others end with 243/CREDENTIALS).
    if (node.ids == 0 && version > 257) {
      block("The server's systemd " + std::to_string(version) +
            " cannot run in a privileged container, where the mount calls that it needs are "
            "forbidden; 257 can. The container must be unprivileged.");
    }
  }

  void mounts() {
    for (const SurveyedFileSystem& mount : facts_.survey.fileSystems) {
      if (!mount.remote) continue;
      warn(mount.mountPoint + " is " + mount.type + " from " + mount.device +
           ": it is not copied, and missing in the container.");
    }
    for (const MissingMount& missing : plan_.missingMounts) {
      if (isRemoteType(missing.type)) continue;
      warn(missing.mountPoint + " (" + missing.type + ", " + missing.device +
           ") will be missing in the container" +
           (missing.reason.empty() ? "." : ": " + missing.reason + "."));
    }
  }

  void quotas() {
    for (const Finding& finding : quotaFindings(facts_.survey, facts_.node)) {
      plan_.findings.push_back(finding);
    }
  }

  void ids() {
    const Survey& survey = facts_.survey;
    const NodeFacts& node = facts_.node;
    if (node.ids > 0 && !node.whyIds.empty()) {
      note("The container will be unprivileged: its root is nobody on the node (" + node.whyIds +
           ").");
    } else if (!node.whyIds.empty()) {
      // Somebody has decided so, or the node can do no better.
      const bool chosen = node.whyIds == host::kPrivilegedByChoice;
      add(chosen ? Severity::kNote : Severity::kWarning,
          "The container will be privileged: its root can become the node's (" + node.whyIds +
              ").");
    }
    const auto check = [&](const char* what, long long id, const std::string& where) {
      const std::string text =
          std::string("The largest ") + what + " is " + std::to_string(id) + " (" + where + "): ";
      const long long ids = facts_.node.ids;
      if (ids > 0) {
        if (id < ids) return;
        block(text + "the unprivileged container has " + std::to_string(ids) +
              " only: give it more with UNPRIVILEGED_IDS, or set UNPRIVILEGED=no.");
      } else if (id > 65535) {
        note(text + "an unprivileged container could not hold it.");
      }
    };
    check("user id", survey.largestUid, survey.largestUidPath);
    check("group id", survey.largestGid, survey.largestGidPath);
  }

  void files() {
    const Survey& survey = facts_.survey;
    if (survey.immutableCount > 0) {
      warn(countText(survey.immutableCount) +
           " immutable or append-only files lose that attribute, first " +
           (survey.immutableFiles.empty() ? "" : survey.immutableFiles[0]) + ".");
    }
    if (!survey.scanComplete) {
      note("Immutable files and large ids were looked for in a part of the files only.");
    }
    for (const SwapFile& swap : survey.swapFiles) {
      note("Swap file " + swap.path + " (" + bytesText(swap.bytes) + ") is left out.");
    }
    if (survey.lastlogBytes > (1 << 20) && survey.lastlogAllocated < survey.lastlogBytes / 2) {
      note("/var/log/lastlog is sparse (" + bytesText(survey.lastlogBytes) + ", " +
           bytesText(survey.lastlogAllocated) + " on disk); it is never copied.");
    }
  }

  void nested() {
    for (const std::string& place : facts_.survey.nestedStorage) {
      warn("Storage of containers, packages or machines inside: " + place +
           " may not work in a container.");
    }
  }

  void hostname() {
    if (host::valueOf(facts_.config, "HOSTNAME").empty()) {
      warn("The container gets no host name: give --hostname.");
    }
  }

  const PlanFacts& facts_;
  Plan& plan_;
};

}  // namespace

void checkPlan(const PlanFacts& facts, Plan& plan) { Checks(facts, plan).all(); }

}  // namespace agent
