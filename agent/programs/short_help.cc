#include "agent/programs/short_help.h"

#include <CLI/CLI.hpp>
#include <vector>

#include "agent/plan/plan_text.h"
#include "host/text.h"

namespace agent {

namespace {

constexpr size_t kColumns = 80;
constexpr size_t kHeadingWidth = 15;  // the longest of ours and two blanks

std::string row(const std::string& name, size_t width, const std::string& text) {
  const std::string first = "  " + name + std::string(width - std::min(width, name.size()), ' ');
  return wrapped(first, std::string(2 + width, ' '), text, kColumns);
}

std::string namesOf(const CLI::App& app, const std::string& heading) {
  std::vector<std::string> names;
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_group() == heading && !option->get_lnames().empty()) {
      names.push_back("--" + option->get_lnames().front());
    }
  }
  return host::joined(names);
}

}  // namespace

std::string shortHelp(const CLI::App& app, const std::string& examples) {
  std::string text = app.get_description() + "\n" + examples + "\nSubcommands:\n";
  for (const CLI::App* command : app.get_subcommands({})) {
    text += row(command->get_name(), 9, command->get_description());
  }
  text += "\nOptions ('--help-all' explains them, 'COMMAND --help' those of a command):\n";
  for (const std::string& heading : app.get_groups()) {
    const std::string names = namesOf(app, heading);
    if (!names.empty()) text += row(heading == "Options" ? "" : heading, kHeadingWidth, names);
  }
  return text;
}

}  // namespace agent
