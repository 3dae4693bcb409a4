// Fake programs of a scratch host: shell scripts that log how they were called.
// Tests use them through ScratchHost.
#ifndef QX_TESTS_SUPPORT_FAKE_TOOL_H
#define QX_TESTS_SUPPORT_FAKE_TOOL_H

#include <string>
#include <vector>

namespace test_support {

// What a fake program does after logging its arguments: runs `script` (shell
// text, with the arguments in "$@"; it may end the tool by itself with exit),
// writes `out` and `err`, ends with `status`.
struct FakeTool {
  int status = 0;
  std::string out = "";
  std::string err = "";
  std::string script = "";
};

// Text of the shell script. `path` is the tool's own path, `log` the file that
// it appends a record to.
std::string fakeToolScript(const std::string& path, const FakeTool& tool, const std::string& log);

// The calls in the contents of a log: program and arguments each.
std::vector<std::vector<std::string>> parseCallLog(const std::string& log);

// Program and arguments with tabs between them. A tab, newline or backslash that
// is part of a word is written \t, \n or \\, so no two different calls look alike.
std::string callLine(const std::vector<std::string>& words);

}  // namespace test_support

#endif  // QX_TESTS_SUPPORT_FAKE_TOOL_H
