#include "node/quota.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <bit>
#include <cerrno>
#include <cstdio>
#include <limits>

#include "host/error.h"
#include "host/file.h"
#include "host/paths.h"
#include "host/text.h"
#include "node/kernel_quota.h"

namespace node {
namespace {

uint64_t parseNumber(const std::string& text, uint64_t max = std::numeric_limits<uint64_t>::max()) {
  const std::optional<uint64_t> value = parseDecimal(text);
  if (!value || *value > max) {
    fail(ExitCode::kUsage, "invalid number '%s'", text.c_str());
  }
  return *value;
}

QuotaKind parseKind(const std::string& option) {
  if (option.ends_with('u')) return QuotaKind::kUser;
  if (option.ends_with('g')) return QuotaKind::kGroup;
  fail(ExitCode::kUsage, "invalid option '%s'", option.c_str());
}

QuotaTable readTable(const std::string& path) {
  const std::optional<std::string> text = readFile(path);
  if (!text && errno == ENOENT) return {};
  if (!text) failErrno("cannot read %s", path.c_str());
  try {
    return parseQuotaTable(*text);
  } catch (const Error& error) {
    fail(error.code(), "%s: %s", path.c_str(), error.what());
  }
}

/// What a command says, in lines that can follow any table.
std::string linesOf(const QuotaCommand& command) {
  if (const auto* grace = std::get_if<QuotaSetGrace>(&command.what)) {
    return quotaGraceLines(grace->kind, grace->grace);
  }
  const auto& limits = std::get<QuotaSetLimits>(command.what);
  return quotaObjectLine(
      limits.kind, limits.object,
      {{0, limits.blockSoft, limits.blockHard, 0}, {0, limits.inodeSoft, limits.inodeHard, 0}});
}

/// What many changes make of the file is written down once in a while.
bool isTimeToFold(off_t before, off_t after) {
  constexpr off_t kSmall = 65536;
  // The size has doubled, so all folding together costs no more than the last one.
  return after > kSmall && std::bit_width(static_cast<uint64_t>(before)) !=
                               std::bit_width(static_cast<uint64_t>(after));
}

/// The area must be locked. What is written in part is taken back.
void addToTable(const std::string& path, const std::string& lines) {
  const Fd fd(open(path.c_str(), O_WRONLY | O_APPEND | O_NOFOLLOW | O_CLOEXEC));
  struct stat status;
  if (!fd && errno == ENOENT) {
    return replaceFile(path, formatQuotaTable(parseQuotaTable(emptyQuotaTable() + lines)), 0600);
  }
  if (!fd || fstat(fd.get(), &status) != 0) failErrno("cannot write %s", path.c_str());
  if (!writeAll(fd.get(), lines)) {
    const int number = errno;
    if (ftruncate(fd.get(), status.st_size) != 0) errno = number;
    errno = number;
    failErrno("cannot write %s", path.c_str());
  }
  const auto added = static_cast<off_t>(lines.size());
  if (isTimeToFold(status.st_size, status.st_size + added)) {
    replaceFile(path, formatQuotaTable(readTable(path)), 0600);
  }
}

/// The same in the file system.
void change(const KernelQuota& quota, const QuotaCommand& command) {
  if (const auto* grace = std::get_if<QuotaSetGrace>(&command.what)) {
    return quota.setGrace(grace->kind, grace->grace);
  }
  const auto& limits = std::get<QuotaSetLimits>(command.what);
  quota.setLimits(
      limits.kind, limits.object,
      {{0, limits.blockSoft, limits.blockHard, 0}, {0, limits.inodeSoft, limits.inodeHard, 0}});
}

/// Commands that change one container wait for each other. The lock is on the
/// directory: the file itself is replaced by every change.
Fd lockArea(const Container& container) {
  Fd lock(open(container.privateArea.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!lock || flock(lock.get(), LOCK_EX) != 0) {
    failErrno("cannot lock %s", container.privateArea.c_str());
  }
  return lock;
}

}  // namespace

std::string quotaUsage() {
  return "Usage: qxquota stat ID [-t]\n"
         "       qxquota setlimit2 ID -u|-g NUMBER BSOFT BHARD ISOFT IHARD\n"
         "       qxquota setlimit2 ID -tu|-tg BGRACE IGRACE\n"
         "Shows and sets the disk limits of a container's users and groups.\n"
         "\n"
         "  stat       exits with 0 or 10 when quotas are on, 6 when they are off;\n"
         "             -t prints the grace times and the limits\n"
         "  setlimit2  sets the limits of user (-u) or group (-g) NUMBER, in blocks of\n"
         "             1024 bytes and in inodes, 0 for none; with -tu or -tg the time in\n"
         "             seconds for which users or groups may exceed their soft limits\n"
         "\n"
         "Exit codes: 0 done, or quotas are on and enforced; 2 wrong command line;\n"
         "6 quotas are off (DISK_QUOTA=no in the container's configuration); 10 quotas are\n"
         "on, but limits are only recorded for the container; 'qxctl mount' enforces them if\n"
         "the container's files are on a file system of their own; 11 failure.\n";
}

QuotaCommand parseQuotaCommand(const std::vector<std::string>& arguments) {
  if (arguments.size() < 2) fail(ExitCode::kUsage, "a command and a container id are expected");
  QuotaCommand command;
  command.id = parseCtid(arguments[1]);
  const size_t count = arguments.size();
  if (arguments[0] == "stat") {
    const bool table = count == 3 && arguments[2] == "-t";
    if (count > 2 && !table) fail(ExitCode::kUsage, "invalid arguments of stat");
    command.what = QuotaStat{table};
  } else if (arguments[0] == "setlimit2") {
    const std::string option = count > 2 ? arguments[2] : "";
    if ((option == "-u" || option == "-g") && count == 8) {
      const auto object =
          static_cast<uint32_t>(parseNumber(arguments[3], std::numeric_limits<uint32_t>::max()));
      command.what = QuotaSetLimits{parseKind(option),         object,
                                    parseNumber(arguments[4]), parseNumber(arguments[5]),
                                    parseNumber(arguments[6]), parseNumber(arguments[7])};
    } else if ((option == "-tu" || option == "-tg") && count == 5) {
      command.what =
          QuotaSetGrace{parseKind(option), {parseNumber(arguments[3]), parseNumber(arguments[4])}};
    } else {
      fail(ExitCode::kUsage, "invalid arguments of setlimit2");
    }
  } else {
    fail(ExitCode::kUsage, "unknown command '%s'", arguments[0].c_str());
  }
  return command;
}

QuotaExit runQuotaCommand(const QuotaCommand& command, std::string& output) {
  const Container container = loadContainer(command.id);
  if (!isDirectory(container.privateArea)) {
    fail(ExitCode::kNotFound, "container %u has no private area: there is no directory %s",
         container.id, container.privateArea.c_str());
  }
  if (const auto* stat = std::get_if<QuotaStat>(&command.what)) {
    if (container.hasNoDiskQuota()) return QuotaExit::kOff;
    const std::optional<KernelQuota> enforced = KernelQuota::of(container);
    if (stat->table) {
      output = formatQuotaTable(enforced ? enforced->read()
                                         : readTable(container.inPrivateArea(kQuotaFile)));
    }
    return enforced ? QuotaExit::kOk : QuotaExit::kKept;
  }
  if (container.hasNoDiskQuota()) {
    fail(ExitCode::kFailed, "disk quotas of container %u are off: DISK_QUOTA is 'no'",
         container.id);
  }
  const Fd lock = lockArea(container);
  // What the kernel refuses is not kept either.
  if (const std::optional<KernelQuota> enforced = KernelQuota::of(container)) {
    change(*enforced, command);
  }
  addToTable(container.inPrivateArea(kQuotaFile), linesOf(command));
  return QuotaExit::kOk;
}

void applyKeptQuota(const Container& container) {
  if (container.hasNoDiskQuota()) return;
  try {
    const std::string path = container.inPrivateArea(kQuotaFile);
    if (!exists(path)) return;
    const Fd lock = lockArea(container);
    if (const std::optional<KernelQuota> enforced = KernelQuota::of(container)) {
      enforced->apply(readTable(path));
    }
  } catch (const Error& error) {
    fprintf(stderr, "warning: the disk limits of container %u are not all in force: %s\n",
            container.id, error.what());
  }
}

}  // namespace node
