// qxagent: the agent of a server that is to be migrated.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "agent/framework/plugin.h"
#include "agent/plan/survey_operator.h"
#include "agent/system/log_level.h"
#include "agent/system/signals.h"
#include "agent/verify/list_operator.h"
#include "agent/wire/server.h"
#include "agent/wire/stdio_server.h"
#include "host/product.h"

namespace {

int serve(const std::string& address, bool stdio, const std::string& library, int verbosity) {
  if (!stdio && address.compare(0, 5, "unix:") != 0) {
    throw std::runtime_error("--listen '" + address +
                             "' is not an address to listen on: use unix:PATH");
  }
  agent::setLogLevel(1 + verbosity);
  const int stopFd = agent::catchStopSignals();
  const agent::Plugin plugin(library.empty() ? agent::Plugin::defaultPath() : library);
  agent::registerSurveyOperator();
  agent::registerListOperator();
  if (stdio) {
    agent::serveStdio(stopFd);
    return 0;
  }
  agent::Server server(address.substr(5));
  server.run(stopFd);
  return 0;
}

}  // namespace

int main(int argc, char** argv) try {
  // What the plug-in's programs print is read, and is not to be translated.
  setenv("LC_ALL", "C", 1);
  host::offerProductFiles();
  CLI::App app("The host agent: lets a container host migrate this server into a container.");
  app.set_version_flag("--version", "qxagent " + host::productVersion());
  app.require_subcommand(1);
  app.footer(
      "Exit status: 0 when stopped by SIGTERM, SIGINT or SIGHUP, 1 when it cannot serve,\n"
      "2 for a wrong command line.");
  CLI::App* serveCommand = app.add_subcommand("serve", "Serve until stopped by a signal");
  std::string listen;
  bool stdio = false;
  std::string library;
  int verbosity = 0;
  auto* listenOption = serveCommand->add_option(
      "--listen", listen, "Where to listen: unix:PATH of the socket to create");
  serveCommand->add_flag("--stdio", stdio, "Serve the peer on standard input and output instead")
      ->excludes(listenOption);
  serveCommand->add_option("--library", library,
                           "The plug-in (default: libqxlinmigrate.so beside this program, in\n"
                           "../lib or where it was installed)");
  serveCommand->add_flag("-v,--verbose", verbosity, "Log more to standard error; may be repeated");
  CLI::App* channelCommand = app.add_subcommand(
      "channel", "Give the standard streams to the agent that runs here, as a data channel");
  std::string token;
  channelCommand->add_option("token", token, "The channel's token")->required();
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& problem) {
    return app.exit(problem) == 0 ? 0 : 2;
  }
  if (channelCommand->parsed()) return agent::offerChannel(token);
  return serve(listen, stdio, library, verbosity);
} catch (const std::exception& problem) {
  fprintf(stderr, "qxagent: %s\n", problem.what());
  return 1;
}
