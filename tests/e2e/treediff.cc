// treediff: is the copy what the source is?

#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "e2e/difference.h"

namespace {

struct Options {
  std::string source;
  std::string copy;
  std::vector<std::string> lists;
  bool all = false;
};

void print(const treediff::Difference& item) {
  printf("  %s: %s: %s\n", treediff::printable(item.path).c_str(), item.aspect.c_str(),
         item.text.c_str());
}

void printReport(const treediff::Report& report, const treediff::Expectations& expectations,
                 bool all) {
  if (report.unexpected() != 0) {
    printf("Unexpected differences:\n");
    for (const treediff::Difference& item : report.differences) {
      if (!item.expected) print(item);
    }
  }
  if (all && report.unexpected() != report.differences.size()) {
    printf("Expected differences:\n");
    for (const treediff::Difference& item : report.differences) {
      if (item.expected) print(item);
    }
  }
  printf("Expected, and why:\n");
  for (const treediff::Expectation& item : expectations.all()) {
    if (item.aspects.count("excluded")) {
      printf("  %-34s excluded       %s\n", item.pattern.c_str(), item.reason.c_str());
    } else if (item.used != 0) {
      printf("  %-34s %4u %s  %s\n", item.pattern.c_str(), item.used,
             item.used == 1 ? "difference " : "differences", item.reason.c_str());
    }
  }
  printf(
      "Compared %llu entries, %llu of them regular files with %llu MiB: "
      "%zu expected differences, %zu unexpected.\n",
      report.entries, report.files, report.bytes >> 20,
      report.differences.size() - report.unexpected(), report.unexpected());
}

int run(const Options& options) {
  treediff::Expectations expectations;
  for (const std::string& path : options.lists) {
    std::ifstream file(path);
    std::ostringstream text;
    if (!(text << file.rdbuf())) throw std::runtime_error("cannot read " + path);
    expectations.add(text.str());
  }
  treediff::Comparison comparison(options.source, options.copy, expectations);
  const treediff::Report report = comparison.run();
  printReport(report, expectations, options.all);
  return report.unexpected() == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(
      "Compares a tree and its copy: type, mode, owner, size, time, content, links,\n"
      "device numbers, extended attributes, holes.");
  Options options;
  app.add_option("source", options.source, "Root of the source")->required();
  app.add_option("copy", options.copy, "Root of the copy")->required();
  app.add_option("--expect", options.lists,
                 "List of expected differences, lines of PATTERN ASPECT[,ASPECT...] REASON;\n"
                 "may be repeated");
  app.add_flag("--all", options.all, "Print the expected differences as well");
  app.footer("Exit status: 0 when every difference was expected, 1 when not, 2 for errors.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& problem) {
    return app.exit(problem) == 0 ? 0 : 2;
  }
  try {
    return run(options);
  } catch (const std::exception& problem) {
    fprintf(stderr, "treediff: %s\n", problem.what());
    return 2;
  }
}
