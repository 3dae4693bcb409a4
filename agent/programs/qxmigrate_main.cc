// qxmigrate: copies a running server into a container of this host, after a plan; or does
// what the command that is named does.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <string>
#include <vector>

#include "agent/programs/commands.h"
#include "agent/programs/short_help.h"
#include "agent/programs/versions.h"
#include "host/cli_words.h"
#include "host/product.h"
#include "host/visible.h"

namespace {

constexpr char kExamples[] =
    "\n"
    "  qxmigrate plan root@oldserver --ctid 101\n"
    "  qxmigrate root@oldserver --ctid 101 --stop-service nginx\n"
    "  qxmigrate verify 101\n";

// Of this program a screen, with --help-all every option; of its commands every option.
std::string helpOf(const CLI::App* app, std::string name, CLI::AppFormatMode mode) {
  if (mode == CLI::AppFormatMode::Normal && app->get_parent() == nullptr) {
    return agent::shortHelp(*app, kExamples);
  }
  return CLI::Formatter().make_help(app, std::move(name), CLI::AppFormatMode::Normal);
}

// A migration needs no word of its own: what it requires is missing only where no command
// is named, and what it is told has no meaning where one is.
class Migration {
 public:
  explicit Migration(CLI::App& app) : run_(agent::describeMigrate(app)) {
    options_ = app.get_options();
    for (CLI::Option* option : options_) {
      if (option->get_required()) required_.push_back(option->required(false));
    }
  }

  void refuseOptions() const {
    for (const CLI::Option* option : options_) {
      if (option->count() > 0) throw CLI::ExtrasError({option->get_name()});
    }
  }

  int run() const {
    for (const CLI::Option* option : required_) {
      if (option->count() == 0) throw CLI::RequiredError(option->get_name());
    }
    return run_();
  }

 private:
  agent::Run run_;
  std::vector<CLI::Option*> options_, required_;
};

}  // namespace

int main(int argc, char** argv) try {
  // What the plug-in's programs print is read, and is not to be translated.
  setenv("LC_ALL", "C", 1);
  host::offerProductFiles();
  CLI::App app("Migrates a running server into a container on this host.", "qxmigrate");
  app.formatter_fn(helpOf);
  app.set_help_all_flag("--help-all", "Explain every option and exit");
  const Migration migration(app);
  app.set_version_flag("--version", agent::versionsText,
                       "Show the versions of this program and of what it loads and sends");
  app.require_subcommand(0, 1);
  std::map<const CLI::App*, agent::Run> commands;
  const auto add = [&](const char* name, agent::Run (*describe)(CLI::App&), const char* text) {
    CLI::App* const command = app.add_subcommand(name, text);
    command->set_help_all_flag();
    commands[command] = describe(*command);
  };
  add("plan", agent::describePlan, "Show what a migration would do, and what would prevent it");
  add("measure", agent::describeMeasure, "Measure a server and compute a container's limits");
  add("list", agent::describeList, "List the migrations that this host has seen, oldest first");
  add("show", agent::describeShow, "Show the journal of a migration");
  add("clean", agent::describeClean,
      "Finish migrations that were interrupted, or remove what they left");
  add("verify", agent::describeVerify, "Compare a container with the server it was made from");
  try {
    app.parse(argc, argv);
    const std::vector<CLI::App*> named = app.get_subcommands();
    if (named.empty()) return migration.run();
    migration.refuseOptions();
    return commands.at(named.front())();
  } catch (const CLI::ParseError& problem) {
    if (problem.get_exit_code() == 0) return app.exit(problem);
    // A value that is wrong belongs to an option that there is.
    const bool value = dynamic_cast<const CLI::ConversionError*>(&problem) != nullptr ||
                       dynamic_cast<const CLI::ValidationError*>(&problem) != nullptr;
    host::CommandWords known = host::wordsOf(app);
    known.commandNeeded = false;
    const std::string text = host::misspelt({argv + 1, argv + argc}, known);
    if (value || text.empty()) {
      app.exit(problem);
    } else {
      fprintf(stderr, "qxmigrate: %s (see qxmigrate --help)\n", host::visibleLine(text).c_str());
    }
    return agent::kExitUsage;
  }
} catch (const std::exception& problem) {
  fprintf(stderr, "qxmigrate: %s\n", problem.what());
  return agent::kExitFailed;
}
