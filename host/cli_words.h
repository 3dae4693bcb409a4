// The words of a command line that CLI11 reads. For programs: the library does without CLI11.
#ifndef QX_HOST_CLI_WORDS_H
#define QX_HOST_CLI_WORDS_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "host/suggest.h"

namespace host {

inline std::vector<std::string> optionsOf(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  return names;
}

/// The options of `app` and of its commands, but for hidden ones (those of no group).
inline CommandWords wordsOf(const CLI::App& app) {
  CommandWords known;
  known.options[""] = optionsOf(app);
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    if (!command->get_group().empty()) known.options[command->get_name()] = optionsOf(*command);
  }
  return known;
}

}  // namespace host

#endif
