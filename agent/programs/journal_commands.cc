#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>

#include "agent/journal/journal_text.h"
#include "agent/journal/leftovers.h"
#include "agent/journal/recovery.h"
#include "agent/page/migration_page.h"
#include "agent/programs/commands.h"
#include "agent/programs/output_file.h"
#include "host/container.h"
#include "host/error.h"
#include "host/file.h"
#include "host/migration_journal.h"
#include "host/visible.h"

namespace agent {

namespace {

// Those that cannot be used are told of, and nothing else is done with them.
int tellDamaged(const host::JournalFolder& folder) {
  for (const std::string& text : folder.damaged) fprintf(stderr, "qxmigrate: %s\n", text.c_str());
  return folder.damaged.empty() ? 0 : kExitFailed;
}

int list() {
  const host::JournalFolder folder = host::readJournals();
  fputs(journalList(folder.journals).c_str(), stdout);
  return tellDamaged(folder);
}

struct ShowSettings {
  std::string id;    // a migration's name, or a container's id for its newest one
  std::string html;  // where a page of it goes; "-" for standard output
};

// As other programs write files: whoever runs it decides by the umask who may read it.
mode_t usualMode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

void write(const ShowSettings& settings, const host::MigrationJournal& journal) {
  const bool page = !settings.html.empty();
  const std::string text = page ? migrationPage(journal) : journalText(journal);
  if (page && settings.html != "-") {
    host::replaceFileDurably(settings.html, text, usualMode());
  } else if (fputs(text.c_str(), stdout) < 0 || fflush(stdout) != 0) {
    host::failErrno("cannot write to standard output");
  }
}

int show(const ShowSettings& settings) {
  const std::string& word = settings.id;
  if (word.find('-') != std::string::npos) {
    write(settings, host::readJournal(word));
    return 0;
  }
  const unsigned ctid = host::parseCtid(word);
  const host::JournalFolder folder = host::readJournals(ctid);
  const int result = tellDamaged(folder);
  if (folder.journals.empty()) {
    fprintf(stderr, "qxmigrate: there is no journal of a migration into container %u\n", ctid);
    return kExitFailed;
  }
  write(settings, folder.journals.back());
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
      fprintf(
          stderr,
          "qxmigrate: a migration into container %u is running (process %d): nothing was done\n",
          *ctid, journal.record.process.pid);
      return kExitFailed;
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
      result = kExitFailed;
    }
  }
  if (!found && result == 0 && !boot) puts("There is nothing to clean.");
  return result;
}

// Runs one of them and tells why it could not be done.
int told(const std::function<int()>& command) {
  try {
    return command();
  } catch (const host::Error& problem) {
    fprintf(stderr, "qxmigrate: %s\n", problem.what());
    return problem.code() == host::ExitCode::kUsage ? kExitUsage : kExitFailed;
  }
}

}  // namespace

Run describeList(CLI::App& app) {
  app.footer("Exit status: 0, 1 when a journal cannot be used, 64 for a wrong command line.");
  return []() { return told(list); };
}

Run describeShow(CLI::App& app) {
  const auto settings = std::make_shared<ShowSettings>();
  app.add_option("ID", settings->id,
                 "A container's id, for its newest migration, or a name of the list")
      ->required();
  app.add_option("--html", settings->html,
                 "Write a page for a browser to this file (-: standard output)");
  app.footer(
      "Exit status: 0, 1 when there is no such journal or the page cannot be written, 64 for a\n"
      "wrong command line.");
  return [settings]() {
    const bool file = !settings->html.empty() && settings->html != "-";
    if (file && !canReplace("--html", settings->html)) return kExitUsage;
    return told([&]() { return show(*settings); });
  };
}

Run describeClean(CLI::App& app) {
  struct Settings {
    std::string id;
    bool all = false;
    bool boot = false;
  };
  const auto settings = std::make_shared<Settings>();
  auto* one = app.add_option("ID", settings->id, "ID of the container");
  app.add_flag("--all", settings->all, "Those of all containers")->excludes(one);
  app.add_flag("--boot", settings->boot, "Only those that ran before this host was booted");
  app.footer("Exit status: 0 when all is clean, 1 when not, 64 for a wrong command line.");
  return [settings]() {
    if (settings->id.empty() && !settings->all) throw CLI::RequiredError("ID or --all");
    return told([&]() {
      return clean(settings->all ? std::nullopt : std::optional(host::parseCtid(settings->id)),
                   settings->boot);
    });
  };
}

}  // namespace agent
