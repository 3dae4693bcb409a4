#include "node/set_variables.h"

#include <algorithm>
#include <array>
#include <optional>

#include "host/address.h"
#include "host/error.h"
#include "host/file.h"
#include "host/host_name.h"
#include "host/interfaces.h"
#include "host/text.h"
#include "node/adapt.h"
#include "node/limits.h"
#include "node/resources.h"
#include "node/storage.h"

namespace node {
namespace {

bool isVariableName(std::string_view name) {
  if (name.empty() || (name[0] >= '0' && name[0] <= '9')) return false;
  return name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_") == name.npos;
}

/// The variable that a line assigns, when it is an assignment by itself.
std::string assignedBy(std::string_view line, const ShellVars& known) {
  const size_t start = line.find_first_not_of(" \t");
  if (start == line.npos) return {};
  std::string_view rest = line.substr(start);
  if (rest.starts_with("export ")) rest.remove_prefix(rest.find_first_not_of(' ', 7));
  const size_t equals = rest.find('=');
  if (equals == rest.npos || !isVariableName(rest.substr(0, equals))) return {};
  try {
    parseShellVars(line, known);
  } catch (const Error&) {
    return {};
  }
  return std::string(rest.substr(0, equals));
}

/// With less memory not even an init comes up.
constexpr uint64_t kLeastMemory = 16 << 20;
/// The smallest that comes up has about ten; its start has more for a moment.
constexpr uint64_t kLeastTasks = 24;

}  // namespace

void checkSettings(const Container& container, const Assignments& assignments) {
  for (const auto& [name, value] : assignments) {
    if (name == "HOSTNAME" && !value.empty() && !isHostName(value)) {
      fail(ExitCode::kUsage, "HOSTNAME: '%s' is not a valid host name", value.c_str());
    }
    if (name == "GATEWAY" || name == "NAMESERVER") {
      for (const std::string_view word : splitWords(value)) {
        const std::string address(word);
        if (isAddress(address)) continue;
        fail(ExitCode::kUsage, "%s: '%s' is not a valid address", name.c_str(), address.c_str());
      }
    }
    if (name == "IP_ADDRESS" || name == "NETIF") {
      for (const Interface& interface : interfacesOf(container)) {
        for (const std::string& address : interface.addresses) {
          if (address == "dhcp" || isInterfaceAddress(address)) continue;
          fail(ExitCode::kUsage, "%s has '%s': ADDRESS/PREFIX or \"dhcp\" is expected",
               name.c_str(), address.c_str());
        }
      }
    }
    if (name == "NUMPROC") {
      const std::optional<ResourceValue> tasks = parseResource(value);
      if (tasks && tasks->limit < kLeastTasks) {
        fail(ExitCode::kUsage, "NUMPROC is '%s': an init and its services need %llu tasks at least",
             value.c_str(), static_cast<unsigned long long>(kLeastTasks));
      }
    }
    if (name == "SLMMEMORYLIMIT") {
      const std::optional<ResourceValue> memory = parseResource(value);
      if (memory && memory->limit < kLeastMemory) {
        fail(ExitCode::kUsage, "SLMMEMORYLIMIT is %s bytes: a container needs %llu at least",
             value.c_str(), static_cast<unsigned long long>(kLeastMemory));
      }
    }
  }
}

Assignments parseAssignments(const std::vector<std::string>& words) {
  static constexpr std::array kFixed{"VEID", "VE_ROOT", "VE_PRIVATE", "LOCKDIR"};
  Assignments assignments;
  for (const std::string& word : words) {
    const size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    if (equals == word.npos || !isVariableName(name)) {
      fail(ExitCode::kUsage, "'%s' is not of the form NAME=VALUE", word.c_str());
    }
    if (std::find(kFixed.begin(), kFixed.end(), name) != kFixed.end()) {
      fail(ExitCode::kUsage, "%s cannot be set this way: move the files, then edit the file",
           name.c_str());
    }
    std::string value = word.substr(equals + 1);
    if (value.find_first_of(std::string_view("\n\0", 2)) != value.npos) {
      fail(ExitCode::kUsage, "the value of %s has a line end in it", name.c_str());
    }
    assignments.emplace_back(name, std::move(value));
  }
  return assignments;
}

std::string withAssignments(std::string_view text, const Assignments& assignments,
                            const ShellVars& known) {
  ShellVars expected = parseShellVars(text, known);
  const ShellVars before = expected;
  for (const auto& [name, value] : assignments) expected[name] = value;
  std::string result;
  std::vector<std::string> written;
  for (const std::string_view line : splitLines(text)) {
    const std::string name = assignedBy(line, before);
    if (name.empty() || std::none_of(assignments.begin(), assignments.end(),
                                     [&](const auto& one) { return one.first == name; })) {
      result += std::string(line) + "\n";
    } else if (std::find(written.begin(), written.end(), name) == written.end()) {
      result += name + "=" + shellQuoted(expected[name]) + "\n";
      written.push_back(name);
    }
  }
  std::string added;
  for (const auto& [name, value] : assignments) {
    if (std::find(written.begin(), written.end(), name) == written.end()) {
      added += name + "=" + shellQuoted(expected[name]) + "\n";
      written.push_back(name);
    }
  }
  // A file may hold values of several lines, of which one looks like an
  // assignment; then nothing is replaced and the last word counts.
  const auto readsBack = [&](const std::string& candidate) {
    try {
      return parseShellVars(candidate, known) == expected;
    } catch (const Error&) {
      return false;
    }
  };
  if (readsBack(result + added)) return result + added;
  result = text;
  if (!result.empty() && !result.ends_with('\n')) result += '\n';
  for (const auto& [name, value] : assignments) {
    result += name + "=" + shellQuoted(expected[name]) + "\n";
  }
  return result;
}

Effects effectsOf(const Container& container, const std::vector<std::string>& changed,
                  const CgroupLayout& layout) {
  const ResourcePlan plan = planResources(container, layout);
  Effects effects;
  for (const std::string& name : changed) {
    const Resource* resource = findResource(name);
    const auto limit = std::find_if(plan.limits.begin(), plan.limits.end(),
                                    [&](const Limit& one) { return one.record == name; });
    if (limit != plan.limits.end()) {
      (isInGroups(*limit) ? effects.now : effects.nextStart).push_back(name);
    } else if (name == "DISKSPACE" && storageOf(container.privateArea) != Storage::kDirectory) {
      effects.nextStart.push_back(name);
    } else if (std::find(plan.unenforced.begin(), plan.unenforced.end(), name) !=
               plan.unenforced.end()) {
      effects.never.push_back(name);
    } else if (isGuestVariable(name) || name == "BRIDGE" || name == "UNPRIVILEGED" ||
               name == "UNPRIVILEGED_IDS" ||
               // A record that is no longer there.
               (resource != nullptr && resource->holder == Holder::kKernel)) {
      effects.nextStart.push_back(name);
    }
  }
  return effects;
}

Container setVariables(const Container& container, const Assignments& assignments) {
  const std::string path = configPath(container.id);
  const std::optional<std::string> text = readFile(path);
  if (!text) failErrno("cannot read %s", path.c_str());
  Container changed = container;
  for (const auto& [name, value] : assignments) changed.vars[name] = value;
  checkSettings(changed, assignments);
  interfacesOf(changed);
  planResources(changed, CgroupLayout());
  replaceFile(path, withAssignments(*text, assignments, container.vars), 0644);
  return loadContainer(container.id);
}

}  // namespace node
