#include "agent/journal/leftovers.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <string_view>
#include <thread>

#include "host/error.h"
#include "host/fd.h"
#include "host/file.h"
#include "host/lock.h"
#include "host/migration_journal.h"
#include "host/process.h"
#include "host/process_mark.h"
#include "host/text.h"

namespace agent {

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// Programs whose environment has the process's mark. The process that began it all
// has marked itself after its start, so it is none of them.
std::vector<pid_t> markedPrograms(const host::ProcessIdentity& process) {
  const std::string mark = std::string(host::kProcessVariable) + "=" + host::processWord(process);
  std::vector<pid_t> found;
  for (const std::string& name : host::listDirectory("/proc")) {
    const auto pid = host::parseDecimal(name);
    if (!pid || static_cast<pid_t>(*pid) == getpid()) continue;
    const std::string place = "/proc/" + name + "/";
    struct stat st;
    if (stat(place.c_str(), &st) != 0 || st.st_uid != geteuid()) continue;
    const std::string environment = host::readFile(place + "environ").value_or("");
    if (('\0' + environment + '\0').find('\0' + mark + '\0') != std::string::npos) {
      found.push_back(static_cast<pid_t>(*pid));
    }
  }
  return found;
}

// Whether all of them are gone in that time.
bool areGone(const host::ProcessIdentity& process, std::chrono::seconds timeout) {
  const auto giveUpAt = Clock::now() + timeout;
  while (!markedPrograms(process).empty()) {
    if (Clock::now() >= giveUpAt) return false;
    std::this_thread::sleep_for(50ms);
  }
  return true;
}

}  // namespace

std::string keptAreaOf(const std::string& privateArea) { return privateArea + ".migrated"; }

uint64_t inodeOf(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 ? st.st_ino : 0;
}

std::optional<host::MigrationRecord> keeperOf(unsigned ctid, const std::string& kept) {
  const uint64_t inode = inodeOf(kept);
  if (inode == 0) return std::nullopt;
  host::JournalFolder folder = host::readJournals(ctid);
  for (auto journal = folder.journals.rbegin(); journal != folder.journals.rend(); ++journal) {
    host::MigrationRecord& record = journal->record;
    if (record.keptArea == kept && record.keptAreaInode == inode) return std::move(record);
  }
  return std::nullopt;
}

bool isOfMigrations(const host::MigrationRecord& record, const std::string& kept) {
  const uint64_t inode = inodeOf(kept);
  if (inode == 0) return false;
  // What was there before is taken back by that stage; only later ones make another.
  const bool was = inode == record.keptInode;
  if (was ? host::hasSucceeded(record, "createDstSrv") : host::hasBegun(record, "createDstSrv")) {
    return true;
  }
  try {
    return keeperOf(record.ctid, kept).has_value();
  } catch (const host::Error&) {
    return false;
  }
}

void stopPrograms(const host::ProcessIdentity& process) {
  if (!host::isOfThisBoot(process)) return;
  for (const pid_t pid : markedPrograms(process)) kill(pid, SIGTERM);
  if (areGone(process, 5s)) return;
  for (const pid_t pid : markedPrograms(process)) kill(pid, SIGKILL);
  if (areGone(process, 10s)) return;
  const std::vector<pid_t> left = markedPrograms(process);
  if (left.empty()) return;
  host::fail(host::ExitCode::kBusy, "process %d, a part of the interrupted migration, does not end",
             left.front());
}

void removeTemporaryFolders() {
  const size_t prefix = std::string_view(host::kTemporaryPrefix).size();
  for (const std::string& name : host::listDirectory("/tmp")) {
    if (!name.starts_with(host::kTemporaryPrefix)) continue;
    const size_t dot = name.find('.', prefix);
    if (dot == name.npos) continue;
    const size_t end = name.find('.', dot + 1);
    const auto pid = host::parseDecimal(std::string_view(name).substr(prefix, dot - prefix));
    const auto start = host::parseDecimal(std::string_view(name).substr(dot + 1, end - dot - 1));
    if (end == name.npos || !pid || !start) continue;
    host::ProcessIdentity owner = host::thisProcess();
    owner.pid = static_cast<pid_t>(*pid);
    owner.startTime = *start;
    const std::string path = "/tmp/" + name;
    struct stat st;
    // In a folder that everybody writes to, only what is ours is what its name says.
    if (host::isAlive(owner) || lstat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) ||
        st.st_uid != geteuid()) {
      continue;
    }
    std::error_code error;
    std::filesystem::remove_all(path, error);
  }
}

void removeDeadLock(const std::string& lockDir, unsigned ctid,
                    const host::ProcessIdentity& process) {
  const std::optional<host::ProcessIdentity> now = host::processOf(process.pid);
  if (now && *now != process) return;
  // As those do who take the lock: looking and removing are one step.
  const host::Fd guard(open(lockDir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!guard) return;
  if (flock(guard.get(), LOCK_EX) != 0) host::failErrno("cannot lock %s", lockDir.c_str());
  const std::string lock = std::to_string(ctid) + ".lck";
  constexpr size_t kRandomLetters = 6;
  for (const std::string& name : host::listDirectory(lockDir)) {
    if (name != lock && !(name.starts_with(lock) && name.size() == lock.size() + kRandomLetters)) {
      continue;
    }
    std::string path = lockDir;
    path += "/" + name;
    const auto content = host::readFile(path);
    if (content && host::parseLockHolder(*content) == process.pid) unlink(path.c_str());
  }
}

void removeKeptArea(const std::string& path) {
  host::runProgram({"rm", "-rf", "--one-file-system", "--", path});
}

}  // namespace agent
