#include "node/tool_main.h"

#include <cstdio>
#include <cstdlib>

#include "host/error.h"
#include "host/text.h"
#include "node/host.h"

namespace node {

int runTool(const char* tool, const std::function<int()>& body) {
  try {
    return body();
  } catch (const Error& error) {
    fprintf(stderr, "%s: %s\n", tool, error.what());
    return static_cast<int>(error.code());
  } catch (const std::exception& error) {
    fprintf(stderr, "%s: %s\n", tool, error.what());
    return static_cast<int>(ExitCode::kFailed);
  }
}

std::string exitCodeHelp() {
  std::string text = "Exit codes:\n";
  for (const ExitCodeMeaning& row : exitCodes()) {
    text += textf("  %-3d %s\n", static_cast<int>(row.code), row.meaning);
  }
  return text;
}

void setToolPath() { setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1); }

}  // namespace node
