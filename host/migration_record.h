// What the journal of one migration holds.
#ifndef QX_HOST_MIGRATION_RECORD_H
#define QX_HOST_MIGRATION_RECORD_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/copy_report.h"
#include "host/process_identity.h"
#include "host/resources.h"

namespace host {

/// running: until its process has ended it, for better or worse; whoever finds that
/// process gone finds an interrupted migration. cleaned: what an interrupted one left
/// was dealt with.
enum class MigrationState { kRunning, kSucceeded, kFailed, kCancelled, kCleaned };

/// The word that files and people have for it.
const char* stateName(MigrationState state);

/// What a server says it is, and what it proved to ssh. Empty where not known.
struct ServerIdentity {
  std::string machineId;
  std::string hostKey;  ///< "SHA256:FINGERPRINT KIND", the kind as in "ssh-ed25519"; older: no kind
};

/// Whether the two are known to be one server: something is known of both, and
/// nothing that is known of both differs. A server has keys of several kinds, of which ssh takes
/// one: keys of two kinds say nothing.
bool isSameServer(const ServerIdentity& first, const ServerIdentity& second);

struct MigrationStage {
  std::string name;
  std::string begun;          ///< see utcNow
  double seconds = 0;         ///< it took
  std::optional<int> result;  ///< 0 when it succeeded; nothing while it runs
};

/// What a server was measured to use of a resource, and what the container got of it.
struct ResourceFigures {
  std::string name;                  ///< see host/resources.h, which has the unit, too
  std::optional<uint64_t> measured;  ///< nothing where the limit is computed from others
  ResourceValue assigned;
};

struct MigrationRecord {
  unsigned ctid = 0;
  std::string source;  ///< as the administrator calls the server
  ServerIdentity server;

  /// Parameters; nothing that could be a secret.
  std::string hostname, distribution, osTemplate;
  std::vector<std::string> excludes, services;
  bool keepOnFailure = false;

  /// What there was before it began.
  bool hadConfiguration = false;
  bool hadPrivateArea = false;
  uint64_t keptInode = 0;  ///< of what an earlier one had kept; 0: nothing
  /// Of the mark that a container is registered, in the private area or in what an earlier
  /// one had kept; 0: none. And whether it had never been started since.
  uint64_t registrationInode = 0;
  bool hadAdaptMarker = false;

  /// Places that it uses.
  std::string configuration, privateArea, root, lock;

  ProcessIdentity process;
  std::string begun, updated;  ///< see utcNow; updated: when it was written last
  MigrationState state = MigrationState::kRunning;
  std::vector<MigrationStage> stages;
  std::string failedStage, error;  ///< of one that failed
  std::vector<std::string> texts;  ///< what was said meanwhile, for people
  std::string keptArea;            ///< where what it copied is kept; empty: nowhere
  uint64_t keptAreaInode = 0;
  long long bytes = 0, files = 0;          ///< to be copied, by the plan; 0: not counted
  std::vector<ResourceFigures> resources;  ///< by the plan
  std::vector<std::string> warnings;
  CopyReport leftOut;  ///< by the last copy
};

/// Whether a stage of that name has begun, or has succeeded.
bool hasBegun(const MigrationRecord& record, std::string_view stage);
bool hasSucceeded(const MigrationRecord& record, std::string_view stage);

/// Bounds of a record, in bytes and lines: longer lists lose their oldest lines, longer texts
/// their ends.
inline constexpr size_t kMaxRecordBytes = 1 << 20;
inline constexpr size_t kMaxRecordTexts = 200;   ///< of warnings and texts each
inline constexpr size_t kMaxRecordText = 1000;   ///< one of them
inline constexpr size_t kMaxRecordValue = 4096;  ///< any other text

/// The record as JSON, which parseRecord takes, whatever the texts and numbers are;
/// docs/journal.md describes it. Throws Error (kBadConfig) for a place that is no absolute path.
std::string formatRecord(const MigrationRecord& record);

/// Reads such a text. Throws Error (kBadConfig), which says what is wrong with it, for
/// anything that formatRecord would not have written.
MigrationRecord parseRecord(std::string_view text);

}  // namespace host

#endif
