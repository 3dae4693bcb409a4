#include "agent/programs/verify_command.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "agent/journal/journal_text.h"
#include "agent/programs/commands.h"
#include "agent/programs/paint.h"
#include "agent/programs/server_command.h"
#include "agent/programs/shown_step.h"
#include "agent/verify/list_operator.h"
#include "agent/verify/verify_text.h"
#include "host/clock.h"
#include "host/container.h"
#include "host/file.h"
#include "host/migration_journal.h"
#include "host/mounts.h"
#include "host/paths.h"
#include "host/process.h"
#include "host/text.h"

namespace agent {

namespace {

using host::textf;

constexpr int kExitDiffers = 1;
constexpr int kExitImpossible = 3;
constexpr char kLastCopy[] = "startRSyncServer2";

struct VerifySettings {
  ServerOptions server;
  std::string ctid;  // as it was typed
  bool json = false;
  bool all = false;
};

/// The migration that made the container.
host::MigrationRecord recordOf(const host::Container& container) {
  const std::string name = container.var(host::kMigrationVariable);
  if (!container.configured || name.empty()) {
    throw std::runtime_error(
        textf("container %u was not made by a migration of this host", container.id));
  }
  host::MigrationRecord record = host::readJournal(name).record;
  if (record.state != host::MigrationState::kSucceeded) {
    throw std::runtime_error(textf("the migration %s did not come to its end: it is '%s'",
                                   name.c_str(), standingOf(record).c_str()));
  }
  return record;
}

/// Its files can be read here as long as this object lives.
class MountedTree {
 public:
  explicit MountedTree(const host::Container& container) : container_(container) {
    const auto isMounted = [&] {
      const std::vector<std::string> points = host::mountPoints();
      return host::countMountsAt(points, container.root) != 0;
    };
    if (isMounted()) return;
    host::runProgram({host::kQxctl, "mount", std::to_string(container.id)});
    mounted_ = true;
  }
  ~MountedTree() {
    if (!mounted_) return;
    try {
      host::runProgram({host::kQxctl, "umount", std::to_string(container_.id)});
    } catch (const std::exception& problem) {
      fprintf(stderr, "qxmigrate: warning: %s\n", problem.what());
    }
  }
  MountedTree(const MountedTree&) = delete;
  MountedTree& operator=(const MountedTree&) = delete;

  /// Where owners are as they are on the disk.
  std::string path() const { return container_.tree(); }

 private:
  const host::Container& container_;
  bool mounted_ = false;
};

Moments momentsOf(const host::MigrationRecord& record) {
  Moments moments;
  for (const host::MigrationStage& stage : record.stages) {
    if (stage.name == kLastCopy)
      moments.copied = host::parseUtc(stage.begun).value_or(moments.copied);
  }
  // Within the second that it ended in, the migration may still have written.
  if (const auto end = host::parseUtc(record.updated)) moments.finished = *end + 1;
  return moments;
}

TreeComparison compare(const host::Container& container, const host::MigrationRecord& record,
                       Planning& planning, MigrationView& view, CancelToken& cancel) {
  const MountedTree tree(container);
  return shown(view, "verify", [&] {
    return compareWithServer(planning.transport(),
                             {tree.path(), record.excludes, momentsOf(record)}, cancel);
  });
}

int verify(const VerifySettings& options, MigrationView& view,
           const std::shared_ptr<CancelToken>& cancel) {
  const host::Container container = host::loadContainer(host::parseCtid(options.ctid));
  const host::MigrationRecord record = recordOf(container);
  QXL::QXLConnectionInfo source = options.server.source;
  if (source.address.empty()) source.address = record.source;
  Planning planning(source, view, cancel);
  if (!host::isSameServer(record.server, planning.identify())) {
    throw std::runtime_error(
        textf("the server %s is not the one that container %u was made from, by its machine id or "
              "its host key",
              source.address.c_str(), container.id));
  }
  const TreeComparison found = compare(container, record, planning, view, *cancel);
  if (options.json) {
    fputs(comparisonJson(found).c_str(), stdout);
  } else {
    present(comparisonText(found, options.all), stdout);
  }
  return found.unexpected == 0 ? 0 : kExitDiffers;
}

}  // namespace

TreeComparison verifyMigration(unsigned ctid, Planning& planning, MigrationView& view,
                               CancelToken& cancel) {
  const host::Container container = host::loadContainer(ctid);
  return compare(container, recordOf(container), planning, view, cancel);
}

Run describeVerify(CLI::App& app) {
  const auto settings = std::make_shared<VerifySettings>();
  app.add_option("ID", settings->ctid, "ID of the container")->required();
  describeServer(app, settings->server);
  // It is in the journal.
  app.get_option("source")->required(false)->description(
      "The server, if it is reached otherwise than when it was migrated");
  app.add_flag("--all", settings->all, "List also the differences that are as they should be");
  describeOutput(app, settings->server);
  app.add_flag("--json", settings->json, "Print JSON")->group(kOutputHeading);
  app.footer(
      "Types, modes, owners, times, sizes, links, holes, extended attributes, access lists\n"
      "and contents are compared. What the migration left out or adapted, and what changed\n"
      "on either side since, is as it should be. Exit status: 0 when nothing else differs,\n"
      "1 when something does, 3 when no comparison was possible, 64 for a wrong command\n"
      "line, 130 when it was cancelled.");
  return [settings]() {
    return withServer(
        settings->server, Shown::kNothing, kExitImpossible,
        [&](MigrationView& view, const auto& cancel) { return verify(*settings, view, cancel); });
  };
}

}  // namespace agent
