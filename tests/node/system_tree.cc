#include "node_test/system_tree.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>

#include "support/temp_tree.h"

namespace node_test {
namespace fs = std::filesystem;
namespace {

std::string shellOutput(const std::string& command) {
  std::string output;
  FILE* pipe = popen(command.c_str(), "r");
  char buffer[4096];
  while (size_t got = fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, got);
  if (pclose(pipe) != 0) throw std::runtime_error("failed: " + command);
  return output;
}

void copyInto(const std::string& tree, const fs::path& file) {
  const fs::path target = tree + file.string();
  fs::create_directories(target.parent_path());
  fs::copy_file(file, target, fs::copy_options::skip_existing);
}

}  // namespace

void makeSystemTree(const std::string& tree, const std::vector<std::string>& programs) {
  std::vector<std::string> files{"/bin/sh"};
  for (const std::string& program : programs) {
    std::string path = shellOutput("command -v " + program);
    path.pop_back();
    files.push_back(path);
  }
  for (const std::string& file : files) {
    copyInto(tree, file);
    std::istringstream words(shellOutput("ldd " + file));
    for (std::string word; words >> word;) {
      if (word[0] == '/') copyInto(tree, word);
    }
  }
}

ToolResult runTool(const std::vector<std::string>& arguments) {
  const test_support::TempTree work;
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    if (freopen(work.path("out").c_str(), "w", stdout) == nullptr ||
        freopen(work.path("err").c_str(), "w", stderr) == nullptr) {
      _exit(126);
    }
    execv(argv[0], argv.data());
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return {WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status),
          test_support::readFile(work.path("out")), test_support::readFile(work.path("err"))};
}

std::string toolPath(const std::string& name) { return std::string(QX_NODE_TOOLS) + "/" + name; }

}  // namespace node_test
