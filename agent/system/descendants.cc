#include "agent/system/descendants.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace agent {

namespace {

void addChildren(pid_t process, pid_t thread, std::vector<pid_t>& found);

void addDescendants(pid_t process, std::vector<pid_t>& found) {
  std::error_code error;  // of one that goes at the time
  const std::filesystem::path tasks = "/proc/" + std::to_string(process) + "/task";
  std::filesystem::directory_iterator task(tasks, error);
  for (; !error && task != std::filesystem::directory_iterator(); task.increment(error)) {
    addChildren(process, static_cast<pid_t>(std::stol(task->path().filename())), found);
  }
}

void addChildren(pid_t process, pid_t thread, std::vector<pid_t>& found) {
  std::ifstream file("/proc/" + std::to_string(process) + "/task/" + std::to_string(thread) +
                     "/children");
  std::vector<pid_t> children;
  for (pid_t child; file >> child;) children.push_back(child);
  for (const pid_t child : children) {
    found.push_back(child);
    addDescendants(child, found);
  }
}

}  // namespace

std::vector<pid_t> descendantsOfThread(pid_t thread) {
  std::vector<pid_t> found;
  addChildren(getpid(), thread, found);
  return found;
}

std::vector<pid_t> descendants() {
  std::vector<pid_t> found;
  addDescendants(getpid(), found);
  return found;
}

}  // namespace agent
