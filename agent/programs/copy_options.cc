#include "agent/programs/copy_options.h"

#include <CLI/CLI.hpp>
#include <cstdlib>

namespace agent {

void describeCopy(CLI::App& app, CopyOptions& options) {
  const auto rate = [](const std::string& text) {
    return host::parseRate(text)
               ? std::string()
               : "'" + text +
                     "' is not a rate: a number of KiB a second, or with K, M or G, as 20M";
  };
  app.add_option_function<std::string>(
         "--bwlimit",
         [&options](const std::string& text) {
           options.pace.kibPerSecond = host::parseRate(text).value_or(0);
         },
         "Copy no more than so much a second: in KiB, or with the unit K, M or G, as 20M")
      ->check(rate)
      ->type_name("RATE");
  app.add_flag("--nice", options.pace.yields,
               "While it is copied, the server's other programs get processors and disks first");
  app.add_option("--direct", options.direct,
                 "auto or off; auto (default): past ssh over TLS, where the server can reach\n"
                 "this node's address; off: through ssh always")
      ->check(CLI::IsMember({"auto", "off"}).description(""))
      ->type_name("WHEN");
}

void announceCopy(const CopyOptions& options) {
  host::announcePace(options.pace);
  if (!options.direct.empty()) setenv("QX_RSYNC_DIRECT", options.direct.c_str(), 1);
}

}  // namespace agent
