#include "agent/plan/survey_services.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>

#include "agent/system/output_of.h"
#include "host/file.h"
#include "host/text.h"

namespace agent {

namespace {

constexpr int kCommandSeconds = 10;

}  // namespace

void surveyServices(Survey& survey) {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/etc/init.d", error)) {
    const std::string name = entry.path().filename();
    struct stat info;
    if (stat(entry.path().c_str(), &info) != 0 || !S_ISREG(info.st_mode)) continue;
    if (!(info.st_mode & S_IXUSR) || name == "rc" || name == "rcS" || name == "functions") continue;
    survey.initScripts.push_back(name);
  }
  std::sort(survey.initScripts.begin(), survey.initScripts.end());

  std::set<std::string> running;
  if (std::filesystem::exists("/run/systemd/system", error)) {
    std::istringstream words(outputOf({"systemctl", "--version"}, kCommandSeconds).value_or(""));
    std::string name;
    words >> name >> survey.systemdVersion;
    std::istringstream lines(outputOf({"systemctl", "list-units", "--type=service",
                                       "--state=running", "--no-legend", "--no-pager"},
                                      kCommandSeconds)
                                 .value_or(""));
    for (std::string line; std::getline(lines, line);) {
      std::istringstream fields(line);
      std::string unit;
      fields >> unit;
      const size_t end = unit.rfind(".service");
      if (end != std::string::npos) running.insert(unit.substr(0, end));
    }
  } else {
    // Running an unknown script to ask for its status is not without effect on
    // every system; the process id it leaves is.
    for (const std::string& name : survey.initScripts) {
      for (const std::string& path :
           {"/run/" + name + ".pid", "/var/run/" + name + ".pid",
            host::textf("/var/run/%s/%s.pid", name.c_str(), name.c_str())}) {
        const long pid = strtol(host::readFile(path).value_or("").c_str(), nullptr, 10);
        if (pid > 0 && std::filesystem::exists("/proc/" + std::to_string(pid), error))
          running.insert(name);
      }
    }
  }
  // These carry the connection or the system itself.
  static const std::set<std::string> kept = {"ssh",  "sshd", "network",        "networking",
                                             "dbus", "udev", "NetworkManager", "rcS"};
  for (const std::string& name : survey.initScripts) {
    if (running.count(name) && !kept.count(name)) survey.runningServices.push_back(name);
  }
}

}  // namespace agent
