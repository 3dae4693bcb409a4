#ifndef QX_SHARE_RSYNC_PRELUDE_H
#define QX_SHARE_RSYNC_PRELUDE_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qxrsync {

// Access lists and extended attributes change stock rsync's wire format, so
// both ends must ask for the same ones; and what the file systems can hold is
// known only on the machines themselves. So the two programs talk first, then
// stock rsync has the channel to itself:
//
//   both ends    "QXRSYNC 1 FEATURES BYTES\n"
//   client only  "CAPABILITIES WORD\n", once its stock rsync runs
//
// FEATURES is "AX", "A", "X" or "-"; BYTES a decimal number, 0 when unknown;
// WORD what stock rsync tells its remote self about the wire format it knows,
// or "-".

inline constexpr unsigned preludeVersion = 1;
inline constexpr size_t preludeLineLimit = 128;  // bytes, without the line end

/// What one end can do.
struct Offer {
  bool acls = false;
  bool xattrs = false;
  std::uint64_t usedBytes = 0;  // sender only: in use on the file systems sent, 0 unknown

  bool operator==(const Offer&) const = default;
};

std::string formatOffer(const Offer& offer);

/// The offer in a line without its line end, or nothing if the line is not one.
std::optional<Offer> parseOffer(std::string_view line);

std::string formatCapabilities(const std::string& capabilities);

/// The word in a capabilities line, empty for "-", or nothing if the line is
/// not one. Only digits, letters and dots pass: the word becomes part of a
/// command line.
std::optional<std::string> parseCapabilities(std::string_view line);

/// A stretch of time that reading or writing may take in all.
class Deadline {
 public:
  explicit Deadline(std::chrono::milliseconds span)
      : end_(std::chrono::steady_clock::now() + span) {}
  /// What is left, in milliseconds, for poll; never negative.
  int left() const;

 private:
  std::chrono::steady_clock::time_point end_;
};

/// Writes mine to out, reads the other end's from in, and returns it with
/// features that only one end has taken away. Takes nothing from in beyond the
/// line. Throws Failure (status 12) when the other end closes the channel, is
/// silent until the deadline, or says anything else than an offer of the same
/// version.
Offer exchangeOffers(int in, int out, const Offer& mine, const Deadline& deadline);

/// The client's second line, and reading it at the server. Throw as above.
void sendCapabilities(int out, const std::string& capabilities, const Deadline& deadline);
std::string receiveCapabilities(int in, const Deadline& deadline);

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_PRELUDE_H
