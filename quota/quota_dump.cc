#include "quota/quota_dump.h"

#include <climits>
#include <cstdlib>
#include <map>

#include "expand/strings.h"
#include "quota/formatted.h"

namespace QuotaMgmt {

namespace {

constexpr char kTerminator[] = "\n\n";
constexpr std::size_t kTerminatorLength = 2;

// Reads a number of the header. Returns an empty text or what is wrong with it.
std::string parseNumber(const std::string& word, long& value) {
  char* rest = nullptr;
  value = std::strtol(word.c_str(), &rest, 10);
  const std::string examining = "Examining '" + word + "'. ";
  // The tab is part of the message and must stay: logs are searched for the text.
  if (value == LONG_MAX || value == LONG_MIN) return examining + "Value is out\tof range";
  if (*rest) return examining + "Trailing garbage in a numeric value: '" + rest + "'";
  return "";
}

// Reads one line of the header. Returns an empty text or what is wrong with it.
std::string parseLine(const std::string& line, const std::string& dump, std::size_t body,
                      const std::map<std::string, std::string*>& sections) {
  const std::vector<std::string> words = Expand::split(" ", line, 0);
  const auto section = sections.find(words[0]);
  if (section == sections.end()) return "Signature was not recognized";
  long numbers[2] = {0, 0};
  for (std::size_t i = 0; i < 2; ++i) {
    // A line cut off before its numbers, or with nothing in their place, is refused: read as
    // zeros it would silently clear the container's quotas.
    if (words.size() <= i + 1 || words[i + 1].empty()) return "Value is missing";
    std::string problem = parseNumber(words[i + 1], numbers[i]);
    if (!problem.empty()) return problem;
  }
  *section->second = dump.substr(body + static_cast<std::size_t>(numbers[0]),
                                 static_cast<std::size_t>(numbers[1]));
  return "";
}

}  // namespace

std::string quota_dump_write(const std::string& limits, const std::string& graces) {
  const unsigned long long limitsLength = limits.size();
  const unsigned long long gracesLength = graces.size();
  return formatted("limits %llu %llu\ngraces %llu %llu\n\n", 0ULL, limitsLength, limitsLength,
                   gracesLength) +
         limits + graces;
}

std::string quota_dump_read(const std::string& dump, std::string& limits, std::string& graces) {
  const std::size_t terminator = dump.find(kTerminator);
  if (terminator == std::string::npos) {
    return "Deserializer detected a malformed quota dump. Header terminator was not found.";
  }
  const std::map<std::string, std::string*> sections = {{"limits", &limits}, {"graces", &graces}};
  unsigned number = 0;
  for (const std::string& line : Expand::split("\n", dump.substr(0, terminator), 0)) {
    if (line.empty()) break;
    const std::string problem = parseLine(line, dump, terminator + kTerminatorLength, sections);
    if (!problem.empty()) {
      return formatted("Deserializer detected a malformed quota dump header at line %u: '%s'. %s",
                       number, line.c_str(), problem.c_str());
    }
    ++number;
  }
  return "";
}

}  // namespace QuotaMgmt
