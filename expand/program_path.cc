#include "expand/program_path.h"

#include <sys/stat.h>

#include "expand/strings.h"

namespace Expand {

ProgramCandidates program_candidates(const char* name, const std::list<std::string>& env) {
  ProgramCandidates candidates;
  const std::string wanted = name;
  // Intended: a name of one character is not found, not even "w" in /usr/bin.
  // Programs with such names have never been run, and it must stay.
  if (wanted.size() < 2) return candidates;
  candidates.unsearched = wanted;
  if (wanted[0] == '/') return candidates;

  const std::string variable = "PATH=";
  for (const std::string& entry : env) {
    if (entry.compare(0, variable.size(), variable) != 0) continue;
    candidates.search = true;
    candidates.searched = split(":", entry.substr(variable.size()), 0);
    for (std::string& candidate : candidates.searched) candidate.append("/").append(wanted);
    break;
  }
  return candidates;
}

const char* ProgramCandidates::find() const {
  if (!search) return unsearched.c_str();
  for (const std::string& candidate : searched) {
    struct stat info;
    if (stat(candidate.c_str(), &info) == 0 && !S_ISDIR(info.st_mode)) return candidate.c_str();
  }
  return "";
}

std::string get_full_name(const char* name, const std::list<std::string>& env) {
  return program_candidates(name, env).find();
}

}  // namespace Expand
