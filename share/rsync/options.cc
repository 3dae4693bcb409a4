#include "share/rsync/options.h"

#include <climits>
#include <cstdint>
#include <string_view>

#include "host/text.h"
#include "share/rsync/failure.h"

namespace qxrsync {

namespace {

using Arguments = std::vector<std::string>;

int descriptorNumber(const char* option, const std::string& text) {
  const std::optional<std::uint64_t> value = host::parseDecimal(text);
  if (!value || *value > INT_MAX)
    throw Failure(kExitSyntax,
                  "the value '" + text + "' of " + option + " is not a file descriptor number");
  return static_cast<int>(*value);
}

// The value of "option=VALUE", or of "option VALUE" with index moved on to it.
std::optional<std::string> valueOf(const Arguments& arguments, size_t& index,
                                   std::string_view option) {
  const std::string& here = arguments[index];
  if (here.compare(0, option.size(), option) != 0) return std::nullopt;
  if (here.size() > option.size()) {
    if (here[option.size()] != '=') return std::nullopt;
    return here.substr(option.size() + 1);
  }
  if (index + 1 == arguments.size())
    throw Failure(kExitSyntax, std::string(option) + " needs a file descriptor number");
  return arguments[++index];
}

// A bunch of short options as a stock client writes it: "-lHogDtpre.iLsfxCIvu".
std::string capabilitiesIn(const std::string& argument) {
  if (argument.size() < 2 || argument[0] != '-' || argument[1] == '-') return {};
  const size_t letter = argument.find('e');
  if (letter == std::string::npos || letter + 1 == argument.size()) return {};
  std::string found = argument.substr(letter + 1);
  const bool known = found[0] == '.' || (found[0] >= '0' && found[0] <= '9');
  return known ? found : std::string();
}

std::string capabilitiesAmong(const Arguments& arguments) {
  for (const std::string& argument : arguments) {
    std::string found = capabilitiesIn(argument);
    if (!found.empty()) return found;
  }
  return {};
}

Options parseServer(const Arguments& arguments) {
  Options options;
  options.arguments = arguments;
  const bool sender = arguments.size() > 2 && arguments[1] == "--sender";
  if (sender && capabilitiesAmong(arguments).empty()) {
    options.mode = Mode::kServer;
    options.served = arguments.back();
  }
  return options;
}

Options parseJoiner(const Arguments& arguments) {
  Options options;
  options.mode = Mode::kJoiner;
  if (arguments.size() < 2) throw Failure(kExitSyntax, arguments[0] + " needs a number");
  options.handoverFd = descriptorNumber(arguments[0].c_str(), arguments[1]);
  options.handOver = arguments[0] == kHandOverOption;
  options.capabilities = capabilitiesAmong(arguments);
  return options;
}

Options parseTracker(const Arguments& arguments) {
  Options options;
  options.mode = Mode::kTracker;
  const auto places = host::parseDecimal(arguments.size() < 3 ? "" : arguments[2]);
  if (!places) throw Failure(kExitSyntax, arguments[0] + " needs a folder and a number");
  options.tracker = {arguments[1], *places, {arguments.begin() + 3, arguments.end()}};
  return options;
}

// The argument after the remote source, leaving out options.
std::string destinationAmong(const Arguments& arguments) {
  bool sourceSeen = false;
  for (const std::string& argument : arguments) {
    if (argument.empty() || argument[0] == '-') continue;
    if (sourceSeen) return argument;
    sourceSeen = argument.find(':') != std::string::npos;
  }
  return {};
}

}  // namespace

Options parseOptions(const Arguments& arguments) {
  if (!arguments.empty() && arguments[0] == "--server") return parseServer(arguments);
  if (!arguments.empty() && (arguments[0] == kJoinOption || arguments[0] == kHandOverOption))
    return parseJoiner(arguments);
  if (!arguments.empty() && arguments[0] == engine::kTrackOption) return parseTracker(arguments);

  Options options;
  for (size_t i = 0; i < arguments.size(); ++i) {
    if (arguments[i] == "--") {  // only names follow
      options.arguments.insert(options.arguments.end(), arguments.begin() + static_cast<long>(i),
                               arguments.end());
      break;
    }
    if (arguments[i] == "--progress-bar") {
      options.progressBar = true;
    } else if (auto in = valueOf(arguments, i, "--fdin")) {
      options.fdIn = descriptorNumber("--fdin", *in);
    } else if (auto out = valueOf(arguments, i, "--fdout")) {
      options.fdOut = descriptorNumber("--fdout", *out);
    } else {
      options.arguments.push_back(arguments[i]);
    }
  }
  if (options.fdIn.has_value() != options.fdOut.has_value())
    throw Failure(kExitSyntax, options.fdIn ? "--fdin is given without --fdout"
                                            : "--fdout is given without --fdin");
  if (options.fdIn || options.progressBar) options.mode = Mode::kClient;
  options.destination = destinationAmong(options.arguments);
  return options;
}

std::string quoteForShellOption(const std::string& path) {
  std::string quoted = "'";
  for (const char c : path) {
    quoted += c;
    if (c == '\'') quoted += c;
  }
  return quoted + "'";
}

}  // namespace qxrsync
