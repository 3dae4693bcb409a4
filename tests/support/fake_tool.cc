#include "support/fake_tool.h"

#include <cstddef>
#include <stdexcept>

namespace test_support {
namespace {

std::string quoted(const std::string& text) {
  std::string result = "'";
  for (const char c : text) {
    if (c == '\'') {
      result += "'\\''";
    } else {
      result += c;
    }
  }
  return result + "'";
}

}  // namespace

// A record is the number of arguments, the program and the arguments, each ended
// by a zero byte: the one byte that no argument contains.
std::string fakeToolScript(const std::string& path, const FakeTool& tool, const std::string& log) {
  std::string script = "#!/bin/sh\n";
  script += "printf '%s\\0' \"$#\" " + quoted(path) + " \"$@\" >> " + log + "\n";
  if (!tool.script.empty()) script += tool.script + "\n";
  if (!tool.out.empty()) script += "printf %s " + quoted(tool.out) + "\n";
  if (!tool.err.empty()) script += "printf %s " + quoted(tool.err) + " >&2\n";
  script += "exit " + std::to_string(tool.status) + "\n";
  return script;
}

std::vector<std::vector<std::string>> parseCallLog(const std::string& log) {
  std::vector<std::vector<std::string>> calls;
  std::size_t at = 0;
  const auto next = [&] {
    const std::size_t end = log.find('\0', at);
    if (end == std::string::npos) throw std::runtime_error("incomplete record in the call log");
    std::string word = log.substr(at, end - at);
    at = end + 1;
    return word;
  };
  while (at < log.size()) {
    const unsigned long arguments = std::stoul(next());
    std::vector<std::string> call;
    for (unsigned long i = 0; i <= arguments; ++i) call.push_back(next());
    calls.push_back(call);
  }
  return calls;
}

std::string callLine(const std::vector<std::string>& words) {
  std::string line;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (i != 0) line += '\t';
    for (const char c : words[i]) {
      switch (c) {
        case '\t':
          line += "\\t";
          break;
        case '\n':
          line += "\\n";
          break;
        case '\\':
          line += "\\\\";
          break;
        default:
          line += c;
      }
    }
  }
  return line;
}

}  // namespace test_support
