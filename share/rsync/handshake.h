#ifndef QX_SHARE_RSYNC_HANDSHAKE_H
#define QX_SHARE_RSYNC_HANDSHAKE_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host/copy_pace.h"
#include "share/rsync/deadline.h"
#include "share/rsync/handover.h"

namespace qxrsync {

// Access lists and extended attributes change stock rsync's wire format, so
// both ends must ask for the same ones; and what the file systems can hold is
// known only on the machines themselves. So the two programs talk first, then
// stock rsync has the channel to itself:
//
//   both ends    "QXRSYNC 2 FEATURES BYTES\n"
//   client only  "CAPABILITIES WORD\n", once its stock rsync runs; with a limit
//                "CAPABILITIES WORD RATE YIELDS\n"
//
// FEATURES is "A", "X" and "D", those that hold and in this order, or "-"; BYTES
// a decimal number, 0 when unknown; WORD what stock rsync tells its remote self
// about the wire format it knows, or "-"; RATE a number of KiB a second, 0 for no limit;
// YIELDS 1 if the server is to give way to everything else there, or 0.
//
// A zero in front of BYTES says that this end has an engine of its own. An end that
// has none reads the same number. Where both ends say so, nothing of what follows
// here happens: the channel is the engines' (docs/engine-protocol.md). A second zero
// says that this end is for a direct connection of the engines (share/engine/direct.h).
//
// "D" says that the channel is a UNIX socket. Where both ends say so they may be
// on one machine, and then no byte has to go through the channel at all:
//
//   client       one byte, with which stock rsync's two descriptors travel
//   server       "TAKEN\n", and its stock rsync speaks on these; or "REFUSED\n",
//                since a relay in between has lost them, and all goes on as before

inline constexpr unsigned kHandshakeVersion = 2;
/// How long an end waits for the other one to speak.
inline constexpr std::chrono::seconds kHandshakeTimeout{60};
inline constexpr size_t kHandshakeLineLimit = 128;  ///< bytes, without the line end

/// What one end can do.
struct Offer {
  bool acls = false;
  bool xattrs = false;
  bool descriptors = false;     ///< the channel carries them
  bool engine = false;          ///< stock rsync is not needed
  bool direct = false;          ///< with an engine: it can do with a connection of its own
  std::uint64_t usedBytes = 0;  ///< sender only: in use on the file systems sent, 0 unknown

  bool operator==(const Offer&) const = default;
};

std::string formatOffer(const Offer& offer);

/// The offer in a line without its line end, or nothing if the line is not one.
std::optional<Offer> parseOffer(std::string_view line);

/// What the client says of its stock rsync, and asks of the server.
struct Capabilities {
  std::string word;  ///< empty for "-"
  host::CopyPace pace;

  bool operator==(const Capabilities&) const = default;
};

std::string formatCapabilities(const Capabilities& capabilities);

/// What a capabilities line says, or nothing if the line is not one. Only digits,
/// letters and dots pass as a word, which becomes part of a command line.
std::optional<Capabilities> parseCapabilities(std::string_view line);

/// Writes mine to out, reads the other end's from in, and returns it with
/// features that only one end has taken away. Takes nothing from in beyond the
/// line. Throws Failure (status 12) when the other end closes the channel, is
/// silent until the deadline, or says anything else than an offer of the same
/// version.
Offer exchangeOffers(int in, int out, const Offer& mine, const Deadline& deadline);

/// The client's second line, and reading it at the server. Throw as above.
void sendCapabilities(int out, const Capabilities& capabilities, const Deadline& deadline);
Capabilities receiveCapabilities(int in, const Deadline& deadline);

/// Offers stock rsync's two descriptors to the other end, which must have agreed
/// on descriptors. True: they were taken, and the channel carries nothing more.
/// Throws as above.
bool handOverStreams(const Channel& channel, int streamIn, int streamOut, const Deadline& deadline);

/// What the client hands over, and the answer to it; nothing if a relay lost it.
/// Throws as above.
std::optional<Channel> takeStreams(int in, int out, const Deadline& deadline);

}  // namespace qxrsync

#endif  // QX_SHARE_RSYNC_HANDSHAKE_H
