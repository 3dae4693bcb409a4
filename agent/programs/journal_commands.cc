#include "agent/programs/journal_commands.h"

#include <CLI/CLI.hpp>
#include <cstdio>

#include "agent/journal/journal_text.h"
#include "agent/journal/leftovers.h"
#include "agent/journal/recovery.h"
#include "host/container.h"
#include "host/error.h"
#include "host/migration_journal.h"
#include "host/visible.h"

namespace agent {

namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 64;

// Those that cannot be used are told of, and nothing else is done with them.
int tellDamaged(const host::JournalFolder& folder) {
  for (const std::string& text : folder.damaged) fprintf(stderr, "qxmigrate: %s\n", text.c_str());
  return folder.damaged.empty() ? 0 : kFailed;
}

int list() {
  const host::JournalFolder folder = host::readJournals();
  fputs(journalList(folder.journals).c_str(), stdout);
  return tellDamaged(folder);
}

// A migration's name, or a container's id for its newest one.
int show(const std::string& word) {
  if (word.find('-') != std::string::npos) {
    fputs(journalText(host::readJournal(word)).c_str(), stdout);
    return 0;
  }
  const unsigned ctid = host::parseCtid(word);
  const host::JournalFolder folder = host::readJournals(ctid);
  const int result = tellDamaged(folder);
  if (folder.journals.empty()) {
    fprintf(stderr, "qxmigrate: no journal tells of a migration into container %u\n", ctid);
    return kFailed;
  }
  fputs(journalText(folder.journals.back()).c_str(), stdout);
  return result;
}

int clean(const std::optional<unsigned>& ctid, bool boot) {
  // Also of those that died before there was anything to write down.
  removeTemporaryFolders();
  const host::JournalFolder folder = host::readJournals(ctid);
  int result = tellDamaged(folder);
  bool found = false;
  for (const host::MigrationJournal& journal : folder.journals) {
    if (!host::isInterrupted(journal.record)) {
      const bool running = ctid && journal.record.state == host::MigrationState::kRunning;
      if (!running) continue;
      fprintf(stderr,
              "qxmigrate: a migration into container %u runs (process %d): nothing was done\n",
              *ctid, journal.record.process.pid);
      return kFailed;
    }
    if (boot && host::isOfThisBoot(journal.record.process)) continue;
    found = true;
    printf("The migration %s was interrupted at %s.\n", journal.name.c_str(),
           journal.record.updated.c_str());
    try {
      for (const std::string& text : recover(journal, Copy::kAsTold)) {
        printf("  %s\n", text.c_str());
      }
    } catch (const std::exception& problem) {
      fprintf(stderr, "qxmigrate: %s cannot be cleaned: %s\n", journal.name.c_str(),
              host::visibleLines(problem.what()).c_str());
      result = kFailed;
    }
  }
  if (!found && result == 0 && !boot) puts("There is nothing to clean.");
  return result;
}

}  // namespace

bool isJournalCommand(const std::string& word) {
  return word == "list" || word == "show" || word == "clean";
}

int runJournalCommand(int argc, char** argv) {
  const std::string word = argv[1];
  CLI::App app;
  app.name("qxmigrate " + word);
  std::string id;
  bool all = false;
  bool boot = false;
  if (word == "list") {
    app.description("Lists the migrations that this host has seen, oldest first.");
  } else if (word == "show") {
    app.description("Shows what the journal of a migration holds.");
    app.add_option("ID", id, "A container's id, for its newest migration, or a name of the list")
        ->required();
  } else {
    app.description(
        "Finishes migrations that were interrupted: removes what they left on this host, or\n"
        "registers the container when it was complete. Touches nothing else.");
    auto* one = app.add_option("ID", id, "Id of the container");
    app.add_flag("--all", all, "Those of all containers")->excludes(one);
    app.add_flag("--boot", boot, "Only those that ran before this host was booted");
    app.footer("Exit status: 0 when all is clean, 1 when not, 64 for a wrong command line.");
  }
  try {
    app.parse(argc - 1, argv + 1);
    if (word == "clean" && id.empty() && !all) throw CLI::RequiredError("ID or --all");
  } catch (const CLI::ParseError& problem) {
    return app.exit(problem) == 0 ? 0 : kUsage;
  }
  try {
    if (word == "list") return list();
    if (word == "show") return show(id);
    return clean(all ? std::nullopt : std::optional(host::parseCtid(id)), boot);
  } catch (const host::Error& problem) {
    fprintf(stderr, "qxmigrate: %s\n", problem.what());
    return problem.code() == host::ExitCode::kUsage ? kUsage : kFailed;
  }
}

}  // namespace agent
