#include "host/migration_journal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <tuple>

#include "host/clock.h"
#include "host/container.h"
#include "host/error.h"
#include "host/fd.h"
#include "host/file.h"
#include "host/text.h"

namespace host {
namespace {

constexpr char kSuffix[] = ".json";
constexpr size_t kTimeLength = 16;  // of YYYYMMDDTHHMMSSZ

std::string pathOf(const std::string& name) {
  return std::string(kJournalDir) + "/" + name + kSuffix;
}

/// The parts of a migration's name, which sort as the migrations began.
struct NameParts {
  std::string time;
  uint64_t number = 1;  // among those of one second
  uint64_t ctid = 0;
  bool operator<(const NameParts& other) const {
    return std::tie(time, number, ctid) < std::tie(other.time, other.number, other.ctid);
  }
};

std::optional<NameParts> partsOf(const std::string& name) {
  const size_t dash = name.find('-');
  if (dash == name.npos) return std::nullopt;
  NameParts parts;
  const std::optional<uint64_t> ctid = parseDecimal(name.substr(0, dash));
  parts.time = name.substr(dash + 1, kTimeLength);
  const std::string rest = name.substr(std::min(name.size(), dash + 1 + kTimeLength));
  if (!ctid || parts.time.size() != kTimeLength) return std::nullopt;
  for (size_t i = 0; i < kTimeLength; ++i) {
    const char wanted = i == 8 ? 'T' : i + 1 == kTimeLength ? 'Z' : '0';
    const bool digit = parts.time[i] >= '0' && parts.time[i] <= '9';
    if (wanted == '0' ? !digit : parts.time[i] != wanted) return std::nullopt;
  }
  if (!rest.empty()) {
    const std::optional<uint64_t> number =
        rest[0] == '-' ? parseDecimal(rest.substr(1)) : std::nullopt;
    if (!number) return std::nullopt;
    parts.number = *number;
  }
  parts.ctid = *ctid;
  return parts;
}

/// Refuses what another user could have made or could change.
void requireOwn(const struct stat& st, const std::string& path) {
  if (st.st_uid != geteuid() || (st.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    fail(ExitCode::kBadConfig, "%s could have been written by another user: it is not trusted",
         path.c_str());
  }
}

void makeFolder() {
  makeDirectories("/var/lib/qx");
  if (mkdir(kJournalDir, 0700) != 0 && errno != EEXIST) {
    failErrno("cannot create directory %s", kJournalDir);
  }
  struct stat st;
  if (lstat(kJournalDir, &st) != 0) failErrno("cannot look at %s", kJournalDir);
  if (!S_ISDIR(st.st_mode)) fail(ExitCode::kExists, "%s is not a directory", kJournalDir);
  requireOwn(st, kJournalDir);
  if (chmod(kJournalDir, 0700) != 0) failErrno("cannot set the mode of %s", kJournalDir);
}

/// Of the room that is kept for a full disk: for the end, and for what decides before it what
/// becomes of a copy.
std::string sparePathOf(const std::string& name) {
  return std::string(kJournalDir) + "/." + name + ".spare";
}

std::string copySparePathOf(const std::string& name) { return sparePathOf(name) + "-copy"; }

std::string unfinishedPathOf(const std::string& name) {
  return std::string(kJournalDir) + "/." + name + ".new";
}

/// Room and an inode for a later record, while there is some; none is no error.
void makeSpare(const std::string& path) {
  constexpr off_t kSpareBytes = 128 << 10;
  const Fd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (fd && posix_fallocate(fd.get(), 0, kSpareBytes) != 0) unlink(path.c_str());
}

/// False with errno set when it cannot be.
bool tryToWrite(const MigrationJournal& journal) {
  // One process writes a journal at a time; what a dead one left is overwritten.
  const std::string unfinished = unfinishedPathOf(journal.name);
  const Fd fd(
      open(unfinished.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!fd || !writeAll(fd.get(), formatRecord(journal.record)) || fsync(fd.get()) != 0 ||
      rename(unfinished.c_str(), pathOf(journal.name).c_str()) != 0) {
    const int number = errno;
    unlink(unfinished.c_str());
    errno = number;
    return false;
  }
  const Fd folder(open(kJournalDir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return folder && fsync(folder.get()) == 0;
}

/// Without it nobody would know that there is a copy to keep.
bool isFirstOfCopy(const MigrationRecord& record) {
  constexpr char kCopy[] = "rSync";
  if (record.stages.empty() || record.stages.back().name != kCopy) return false;
  const auto isCopy = [&](const MigrationStage& stage) { return stage.name == kCopy; };
  return !record.stages.back().result &&
         std::count_if(record.stages.begin(), record.stages.end(), isCopy) == 1;
}

/// Gives up what is kept for this record; false when it must do without.
bool makeRoomFor(const MigrationJournal& journal) {
  const bool ended = journal.record.state != MigrationState::kRunning;
  if (!ended && !isFirstOfCopy(journal.record)) return false;
  const bool copys = unlink(copySparePathOf(journal.name).c_str()) == 0;
  return ended ? unlink(sparePathOf(journal.name).c_str()) == 0 || copys : copys;
}

/// False with errno set when it cannot be, though the disk may be full.
bool writeOnFullDisk(const MigrationJournal& journal) {
  if (tryToWrite(journal)) return true;
  const int number = errno;
  const bool full = number == ENOSPC || number == EDQUOT;
  if (full && makeRoomFor(journal)) return tryToWrite(journal);
  errno = number;
  return false;
}

}  // namespace

std::string newMigrationName(unsigned ctid) {
  std::string time = utcNow();
  std::erase_if(time, [](char c) { return c == '-' || c == ':'; });
  const std::string first = textf("%u-%s", ctid, time.c_str());
  std::string name = first;
  for (int number = 2; exists(pathOf(name)); ++number) name = textf("%s-%d", first.c_str(), number);
  return name;
}

void writeJournal(const MigrationJournal& journal) {
  makeFolder();
  // A full disk must not make a migration that came to its end look like an interrupted one.
  if (!writeOnFullDisk(journal)) failErrno("cannot write %s", pathOf(journal.name).c_str());
  for (const std::string& spare : {sparePathOf(journal.name), copySparePathOf(journal.name)}) {
    if (journal.record.state == MigrationState::kRunning) {
      makeSpare(spare);
    } else {
      unlink(spare.c_str());
    }
  }
}

MigrationJournal readJournal(const std::string& name) {
  const std::string path = pathOf(name);
  const std::optional<NameParts> parts = partsOf(name);
  if (!parts) fail(ExitCode::kUsage, "'%s' is not the name of a migration", name.c_str());
  const Fd fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat st;
  if (!fd && errno == ENOENT) {
    fail(ExitCode::kNotFound, "there is no migration '%s': there is no %s", name.c_str(),
         path.c_str());
  }
  if (!fd || fstat(fd.get(), &st) != 0) failErrno("cannot read %s", path.c_str());
  if (!S_ISREG(st.st_mode)) fail(ExitCode::kBadConfig, "%s is not a file", path.c_str());
  requireOwn(st, path);
  if (st.st_size > static_cast<off_t>(kMaxRecordBytes)) {
    fail(ExitCode::kBadConfig, "%s is larger than any journal", path.c_str());
  }
  std::string text(static_cast<size_t>(st.st_size), '\0');
  const ssize_t got = pread(fd.get(), text.data(), text.size(), 0);
  if (got < 0) failErrno("cannot read %s", path.c_str());
  text.resize(static_cast<size_t>(got));
  try {
    MigrationJournal journal{name, parseRecord(text)};
    if (journal.record.ctid != parts->ctid) {
      fail(ExitCode::kBadConfig, "it is of container %u", journal.record.ctid);
    }
    return journal;
  } catch (const Error& problem) {
    fail(ExitCode::kBadConfig, "%s is damaged: %s", path.c_str(), problem.what());
  }
}

std::vector<std::string> journalNames(std::optional<unsigned> ctid) {
  struct stat st;
  if (lstat(kJournalDir, &st) != 0) {
    if (errno == ENOENT) return {};
    failErrno("cannot look at %s", kJournalDir);
  }
  if (S_ISDIR(st.st_mode)) requireOwn(st, kJournalDir);
  std::vector<std::pair<NameParts, std::string>> names;
  for (const std::string& file : listDirectory(kJournalDir)) {
    if (!file.ends_with(kSuffix)) continue;
    const std::string name = file.substr(0, file.size() - (sizeof kSuffix - 1));
    const std::optional<NameParts> parts = partsOf(name);
    if (parts && (!ctid || parts->ctid == *ctid)) names.emplace_back(*parts, name);
  }
  std::sort(names.begin(), names.end());
  std::vector<std::string> sorted;
  for (auto& [parts, name] : names) sorted.push_back(std::move(name));
  return sorted;
}

std::string containerIn(const std::string& name) { return name.substr(0, name.find('-')); }

void removeJournal(const std::string& name) {
  // What a process that died while it wrote it has left goes as well.
  unlink(unfinishedPathOf(name).c_str());
  unlink(sparePathOf(name).c_str());
  unlink(copySparePathOf(name).c_str());
  if (unlink(pathOf(name).c_str()) != 0 && errno != ENOENT) {
    failErrno("cannot remove %s", pathOf(name).c_str());
  }
}

JournalFolder readJournals(std::optional<unsigned> ctid) {
  JournalFolder folder;
  for (const std::string& name : journalNames(ctid)) {
    try {
      folder.journals.push_back(readJournal(name));
    } catch (const Error& problem) {
      folder.damaged.emplace_back(problem.what());
    }
  }
  return folder;
}

bool isInterrupted(const MigrationRecord& record) {
  return record.state == MigrationState::kRunning && !isAlive(record.process);
}

std::optional<MigrationJournal> interruptedMigration(unsigned ctid) {
  JournalFolder folder = readJournals(ctid);
  for (auto journal = folder.journals.rbegin(); journal != folder.journals.rend(); ++journal) {
    if (!isInterrupted(journal->record)) continue;
    // What somebody else has made since was not left by it.
    const Container container = findContainer(ctid);
    const bool others = container.configured && container.var(kMigrationVariable) != journal->name;
    if (!others) return std::move(*journal);
  }
  return std::nullopt;
}

std::string interruptionText(const MigrationRecord& record) {
  const char* const outcome =
      hasSucceeded(record, "tuneDstSrv") ? "registers it, for it is complete" : "removes it";
  return textf(
      "left by a migration that was interrupted at %s; qxmigrate clean %u %s, or run it "
      "again",
      record.updated.c_str(), record.ctid, outcome);
}

}  // namespace host
