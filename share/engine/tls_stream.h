#ifndef QX_SHARE_ENGINE_TLS_STREAM_H
#define QX_SHARE_ENGINE_TLS_STREAM_H

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string_view>

#include "host/fd.h"
#include "share/engine/stream.h"
#include "share/rsync/deadline.h"

struct ssl_st;

namespace engine {

/// A secret that two ends have, for one connection. Wiped when it goes.
class Key {
 public:
  static constexpr size_t kSize = 32;  ///< bytes

  Key() = default;
  ~Key() { wipe(); }
  Key(Key&& other) noexcept;
  Key& operator=(Key&& other) noexcept;

  /// Makes a new one of the kernel's random numbers, without waiting for them. False:
  /// the kernel has none yet, or (before Linux 3.17) none that are known to be good.
  bool make();
  /// Takes Key::kSize bytes.
  void take(std::string_view bytes);
  std::string_view view() const;
  void wipe();

 private:
  std::array<char, kSize> bytes_{};
};

/// Over TLS 1.3 on a connection of its own, beside a channel that is idle meanwhile and
/// whose end means that the other end is gone. Both ends prove to each other that they
/// have the same key; there are no certificates. Two threads use it at once, as with
/// every stream.
class TlsStream : public Stream {
 public:
  enum class Role { kListener, kConnector };

  /// connection  a connected TCP socket
  /// channel     what is read from when it ends; not owned
  TlsStream(host::Fd connection, int channel, Role role);
  ~TlsStream() override;

  /// Agrees on keys with the other end, once, before anything else. Returns 0, or an
  /// errno value: EPROTO for another key, no TLS at all, and at the deadline. If told
  /// to heed the channel, EAGAIN when that has something to read; it is to be called
  /// again then, if the other end still wants to.
  int agree(const Key& key, const qxrsync::Deadline& deadline, bool heedChannel);

  /// Counts the waiting only, not the enciphering.
  std::chrono::nanoseconds write(std::string_view bytes) override;
  size_t read(char* to, size_t count, int interrupted) override;
  void finish() override;

 private:
  struct Free {
    void operator()(ssl_st* tls) const;
  };

  int tryRead(char* to, size_t count, size_t& got);
  void wait(short events, int interrupted) const;
  void renewKey();

  host::Fd connection_;
  int channel_;
  std::mutex mutex_;  ///< for tls_, which two threads must not use at once
  std::unique_ptr<ssl_st, Free> tls_;
  std::uint64_t sinceRenewal_ = 0;  ///< bytes written
};

}  // namespace engine

#endif  // QX_SHARE_ENGINE_TLS_STREAM_H
