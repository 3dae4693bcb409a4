#include "share/engine/tls_stream.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/random.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include "share/engine/frame.h"
#include "share/rsync/failure.h"

namespace engine {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kIdentity = "qxrsync";  // of the key; there is one only
constexpr unsigned char kAesGcm[] = {0x13, 0x01};  // TLS_AES_128_GCM_SHA256
constexpr std::chrono::seconds kFinishTimeout{10};

// AES-GCM may take some 380 GB with one key (RFC 8446, 5.5). Renewing costs next to
// nothing, so it is done often enough to be seen to work.
constexpr std::uint64_t kKeyLifetime = 64 << 20;  // bytes

// Of a way that has fallen silent while nothing was to be sent. TCP_USER_TIMEOUT would do
// for the rest, but it also ends the connection to a receiver whose disk is slow.
constexpr int kIdleBeforeProbe = 20;  // seconds
constexpr int kProbeInterval = 10;    // seconds
constexpr int kProbes = 4;

struct FreeContext {
  void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
using Context = std::unique_ptr<SSL_CTX, FreeContext>;

// Ciphers that are quick without instructions of the processor for them come first
// where there are none.
bool hasAes() { return __builtin_cpu_supports("aes") && __builtin_cpu_supports("pclmul"); }

const char* ciphers() {
  return hasAes() ? "TLS_AES_128_GCM_SHA256:TLS_CHACHA20_POLY1305_SHA256"
                  : "TLS_CHACHA20_POLY1305_SHA256:TLS_AES_128_GCM_SHA256";
}

// The key as a session to resume; nullptr when there is no memory. The cipher stands for
// its hash only, which all ciphers that are allowed here have.
SSL_SESSION* sessionFor(SSL* tls) {
  const auto* key = static_cast<const Key*>(SSL_get_app_data(tls));
  SSL_SESSION* session = key == nullptr ? nullptr : SSL_SESSION_new();
  if (session == nullptr) return nullptr;
  const auto* bytes = reinterpret_cast<const unsigned char*>(key->view().data());
  if (SSL_SESSION_set1_master_key(session, bytes, Key::kSize) == 1 &&
      SSL_SESSION_set_cipher(session, SSL_CIPHER_find(tls, kAesGcm)) == 1 &&
      SSL_SESSION_set_protocol_version(session, TLS1_3_VERSION) == 1)
    return session;
  SSL_SESSION_free(session);
  return nullptr;
}

int useKey(SSL* tls, const EVP_MD* /*hash*/, const unsigned char** identity, size_t* size,
           SSL_SESSION** session) {
  *identity = reinterpret_cast<const unsigned char*>(kIdentity.data());
  *size = kIdentity.size();
  *session = sessionFor(tls);
  return *session != nullptr ? 1 : 0;
}

int findKey(SSL* tls, const unsigned char* identity, size_t size, SSL_SESSION** session) {
  const bool known = size == kIdentity.size() && std::memcmp(identity, kIdentity.data(), size) == 0;
  *session = known ? sessionFor(tls) : nullptr;
  return !known || *session != nullptr ? 1 : 0;
}

// No file of the machine says anything about it, and nothing is left to be done at the
// program's end, when threads may still use it.
Context makeContext(TlsStream::Role role) {
  OPENSSL_init_ssl(OPENSSL_INIT_NO_LOAD_CONFIG | OPENSSL_INIT_NO_ATEXIT, nullptr);
  const bool listens = role == TlsStream::Role::kListener;
  Context context(SSL_CTX_new(listens ? TLS_server_method() : TLS_client_method()));
  SSL_CTX* const made = context.get();
  if (made == nullptr || SSL_CTX_set_min_proto_version(made, TLS1_3_VERSION) != 1 ||
      SSL_CTX_set_max_proto_version(made, TLS1_3_VERSION) != 1 ||
      SSL_CTX_set_ciphersuites(made, ciphers()) != 1 ||
      SSL_CTX_set1_groups_list(made, "X25519") != 1)
    throw std::bad_alloc();
  // The stream's end is what the frames say, so nobody can cut it short unnoticed.
  SSL_CTX_set_options(made, SSL_OP_NO_TICKET | SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION |
                                SSL_OP_IGNORE_UNEXPECTED_EOF);
  // The connector's order holds, unless this end is the one that had better avoid AES.
  if (listens && !hasAes()) SSL_CTX_set_options(made, SSL_OP_CIPHER_SERVER_PREFERENCE);
  SSL_CTX_set_num_tickets(made, 0);
  SSL_CTX_set_session_cache_mode(made, SSL_SESS_CACHE_OFF);
  // A certificate instead of the key would be believed by nobody.
  if (!listens) SSL_CTX_set_verify(made, SSL_VERIFY_PEER, nullptr);
  SSL_CTX_set_psk_use_session_callback(made, useKey);
  SSL_CTX_set_psk_find_session_callback(made, findKey);
  SSL_CTX_set_mode(made, SSL_MODE_ENABLE_PARTIAL_WRITE);
  // Several records with one system call.
  SSL_CTX_set_read_ahead(made, 1);
  SSL_CTX_set_default_read_buffer_len(made, kUsualFrame);
  return context;
}

void setOption(int socket, int level, int name, int value) {
  ::setsockopt(socket, level, name, &value, sizeof value);
}

// The kernel finds the sizes of the buffers itself, and better than a number would.
void prepareSocket(int socket) {
  setOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
  setOption(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
  setOption(socket, IPPROTO_TCP, TCP_KEEPIDLE, kIdleBeforeProbe);
  setOption(socket, IPPROTO_TCP, TCP_KEEPINTVL, kProbeInterval);
  setOption(socket, IPPROTO_TCP, TCP_KEEPCNT, kProbes);
}

// What is derived of it has taken its place by now.
void forgetKey(SSL* tls) {
  SSL_SESSION* const session = SSL_get0_session(tls);
  constexpr unsigned char kNothing[Key::kSize] = {};
  if (session != nullptr) SSL_SESSION_set1_master_key(session, kNothing, sizeof kNothing);
}

// What to poll for after this error of TLS; 0 for another one.
short eventsFor(int error) {
  if (error == SSL_ERROR_WANT_READ) return POLLIN;
  return error == SSL_ERROR_WANT_WRITE ? POLLOUT : short{0};
}

[[noreturn]] void fail(int error, const char* what) {
  if (error == SSL_ERROR_SYSCALL && errno != 0)
    throw qxrsync::systemFailure(qxrsync::kExitProtocol, what);
  throw qxrsync::Failure(qxrsync::kExitProtocol, std::string(what) + ": TLS error");
}

}  // namespace

Key::Key(Key&& other) noexcept { *this = std::move(other); }

Key& Key::operator=(Key&& other) noexcept {
  if (this == &other) return *this;
  bytes_ = other.bytes_;
  other.wipe();
  return *this;
}

bool Key::make() {
  return ::getrandom(bytes_.data(), bytes_.size(), GRND_NONBLOCK) ==
         static_cast<ssize_t>(bytes_.size());
}

void Key::take(std::string_view bytes) { bytes.copy(bytes_.data(), bytes_.size()); }

void Key::wipe() { ::explicit_bzero(bytes_.data(), bytes_.size()); }

std::string_view Key::view() const { return {bytes_.data(), bytes_.size()}; }

void TlsStream::Free::operator()(ssl_st* tls) const { SSL_free(tls); }

TlsStream::TlsStream(host::Fd connection, int channel, Role role)
    : connection_(std::move(connection)), channel_(channel) {
  const Context context = makeContext(role);
  tls_.reset(SSL_new(context.get()));
  if (!tls_ || SSL_set_fd(tls_.get(), connection_.get()) != 1) throw std::bad_alloc();
  if (role == Role::kListener)
    SSL_set_accept_state(tls_.get());
  else
    SSL_set_connect_state(tls_.get());
  prepareSocket(connection_.get());
}

TlsStream::~TlsStream() = default;

int TlsStream::agree(const Key& key, const qxrsync::Deadline& deadline, bool heedChannel) {
  SSL_set_app_data(tls_.get(), const_cast<Key*>(&key));  // sessionFor takes it as const
  int problem = 0;
  while (problem == 0) {
    ERR_clear_error();
    const int result = SSL_do_handshake(tls_.get());
    if (result == 1) {
      // "Reused" is said of the key, in place of which there is nothing else.
      if (SSL_session_reused(tls_.get()) != 1) problem = EPROTO;
      break;
    }
    const short events = eventsFor(SSL_get_error(tls_.get(), result));
    if (events == 0) {
      problem = EPROTO;
      break;
    }
    pollfd wanted[] = {{connection_.get(), events, 0}, {heedChannel ? channel_ : -1, POLLIN, 0}};
    const int ready = ::poll(wanted, 2, deadline.left());
    if (ready == 0) problem = EPROTO;
    if (ready > 0 && wanted[0].revents == 0) problem = EAGAIN;
  }
  SSL_set_app_data(tls_.get(), nullptr);
  if (problem != EAGAIN) forgetKey(tls_.get());
  return problem;
}

void TlsStream::wait(short events, int interrupted) const {
  pollfd wanted[] = {
      {connection_.get(), events, 0}, {interrupted, POLLIN, 0}, {channel_, POLLIN, 0}};
  ::poll(wanted, 3, -1);
  if (wanted[1].revents != 0) throw Interrupted{};
  if (wanted[0].revents == 0 && wanted[2].revents != 0)
    throw qxrsync::Failure(qxrsync::kExitProtocol, "the data channel has ended");
}

void TlsStream::renewKey() {
  if (sinceRenewal_ < kKeyLifetime) return;
  sinceRenewal_ = 0;
  if (SSL_key_update(tls_.get(), SSL_KEY_UPDATE_NOT_REQUESTED) != 1)
    fail(SSL_ERROR_SSL, "cannot renew the direct connection's key");
}

std::chrono::nanoseconds TlsStream::write(std::string_view bytes) {
  std::chrono::nanoseconds waited{};
  while (!bytes.empty()) {
    int error = SSL_ERROR_NONE;
    {
      const std::scoped_lock lock(mutex_);
      ERR_clear_error();
      errno = 0;
      size_t count = 0;
      const int result = SSL_write_ex(tls_.get(), bytes.data(), bytes.size(), &count);
      if (result != 1) {
        error = SSL_get_error(tls_.get(), result);
      } else {
        bytes.remove_prefix(count);
        sinceRenewal_ += count;
        renewKey();
        continue;
      }
    }
    const short events = eventsFor(error);
    if (events == 0) fail(error, "cannot write to the direct connection");
    const Clock::time_point began = Clock::now();
    wait(events, -1);
    waited += Clock::now() - began;
  }
  return waited;
}

// 0, or the error of TLS; what it says of a stream that has ended is always the same.
int TlsStream::tryRead(char* to, size_t count, size_t& got) {
  const std::scoped_lock lock(mutex_);
  ERR_clear_error();
  errno = 0;
  const int result = SSL_read_ex(tls_.get(), to, count, &got);
  if (result == 1) return 0;
  const int error = SSL_get_error(tls_.get(), result);
  return error == SSL_ERROR_SYSCALL && errno == ECONNRESET ? SSL_ERROR_ZERO_RETURN : error;
}

size_t TlsStream::read(char* to, size_t count, int interrupted) {
  while (true) {
    size_t got = 0;
    const int error = tryRead(to, count, got);
    if (error == 0) return got;
    if (error == SSL_ERROR_ZERO_RETURN) return 0;
    const short events = eventsFor(error);
    if (events == 0) fail(error, "cannot read from the direct connection");
    wait(events, interrupted);
  }
}

// The channel and the connection are different ways: the other end could see the
// channel's end before what was said last on the connection.
void TlsStream::finish() {
  const qxrsync::Deadline deadline(kFinishTimeout);
  char unread[1024];
  while (deadline.left() > 0) {
    size_t got = 0;
    const int error = tryRead(unread, sizeof unread, got);
    if (error == 0) continue;
    pollfd wanted[] = {{connection_.get(), eventsFor(error), 0}, {channel_, POLLIN, 0}};
    if (wanted[0].events == 0) return;
    ::poll(wanted, 2, deadline.left());
    if (wanted[0].revents == 0 && wanted[1].revents != 0) return;
  }
}

}  // namespace engine
