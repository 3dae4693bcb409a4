// The connection of the engines' own: that it is used where it can be, that nobody else
// can use it or read it, and that a copy is right in whatever way it fails.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "host/copy_report.h"
#include "share/engine/frame.h"
#include "share/engine/ip_address.h"
#include "share/engine/tls_stream.h"
#include "share_tests/engine/random_tree.h"
#include "share_tests/transfer.h"
#include "share_tests/tree_picture.h"
#include "support/temp_tree.h"

using engine::Buffer;
using engine::Kind;
using qxrsync::Deadline;
using test_support::dirAt;
using test_support::fileAt;
using test_support::TempTree;
using testing::HasSubstr;
using testing::Not;

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr const char* kLoopback = "127.0.0.1";
constexpr int kLookMs = 50;

engine::IpAddress loopback() { return *engine::IpAddress::parse(kLoopback); }

Fd connectTo(std::uint16_t port) {
  host::Fd made = loopback().connect(port, Deadline(std::chrono::seconds(5)));
  return Fd(made.release());
}

// Both ends as ours are: they never wait.
void writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(fd, bytes.data(), bytes.size());
    if (count >= 0) {
      bytes.remove_prefix(static_cast<size_t>(count));
    } else if (errno == EAGAIN) {
      pollfd room{fd, POLLOUT, 0};
      ::poll(&room, 1, kLookMs);
    } else {
      return;
    }
  }
}

// Where the receiver waits and what it takes for a proof, as the channel says it.
struct Rendezvous {
  std::uint16_t port = 0;
  std::string key;
};

// Carries the channel, and may see and change where the ends are going to meet.
class Between {
 public:
  using Meet = std::function<void(Rendezvous&)>;

  Between(RelayedChannel& channel, Meet meet)
      : meet_(std::move(meet)),
        toServer_(std::move(channel.toServer)),
        toClient_(std::move(channel.toClient)),
        up_([this] { carryUp(); }),
        down_([this] { carry(toServer_, toClient_, fromServer_); }) {}
  ~Between() {
    cut();
    up_.join();
    down_.join();
  }

  // As when ssh ends.
  void cut() { cut_ = true; }
  std::uint64_t fromServer() const { return fromServer_; }

 private:
  std::string take(size_t count) {
    std::string bytes(count, '\0');
    size_t have = 0;
    ssize_t got = 0;
    while (have < count && (got = ::read(toClient_.in.get(), &bytes[have], count - have)) > 0)
      have += static_cast<size_t>(got);
    bytes.resize(have);
    return bytes;
  }

  // The line with which the client offers what it can do, and its first frame.
  void carryUp() {
    std::string line;
    while (line.empty() || line.back() != '\n') {
      const std::string byte = take(1);
      if (byte.empty()) break;
      line += byte;
    }
    writeAll(toServer_.out.get(), line);
    const std::string header = take(engine::kFrameHeader);
    if (header.size() == engine::kFrameHeader) passFrame(header);
    std::atomic<std::uint64_t> unused = 0;
    carry(toClient_, toServer_, unused);
  }

  void passFrame(const std::string& header) {
    std::string payload = take(engine::decodeHeader(header).length);
    if (engine::decodeHeader(header).kind != Kind::kMeeting) {
      writeAll(toServer_.out.get(), header + payload);
      return;
    }
    engine::Decoder from(payload);
    Rendezvous place;
    place.port = static_cast<std::uint16_t>(from.number());
    place.key = payload.substr(payload.size() - from.left());
    if (meet_) meet_(place);
    Buffer frame = engine::emptyFrame();
    engine::putNumber(frame, place.port);
    frame.append(place.key);
    engine::PlainStream stream(-1, toServer_.out.get());
    engine::FrameWriter(stream).write(Kind::kMeeting, 0, 0, frame);
  }

  void carry(ChannelEnd& from, ChannelEnd& to, std::atomic<std::uint64_t>& count) {
    char buffer[65536];
    while (!cut_) {
      pollfd wanted{from.in.get(), POLLIN, 0};
      if (::poll(&wanted, 1, kLookMs) == 0) continue;
      const ssize_t got = ::read(from.in.get(), buffer, sizeof buffer);
      if (got <= 0) break;
      count += static_cast<std::uint64_t>(got);
      writeAll(to.out.get(), {buffer, static_cast<size_t>(got)});
    }
    to.out.close();
  }

  Meet meet_;
  ChannelEnd toServer_;
  ChannelEnd toClient_;
  std::atomic<bool> cut_ = false;
  std::atomic<std::uint64_t> fromServer_ = 0;
  std::thread up_;
  std::thread down_;
};

// A part of the network between the two: the server's connection comes here.
class Wire {
 public:
  enum class Trick { kNone, kCut, kPause, kDamage };

  // The trick comes after so many bytes from the server.
  explicit Wire(Trick trick = Trick::kNone, size_t after = 0) : trick_(trick), after_(after) {
    listener_ = Fd(loopback().listen(port_).release());
  }
  ~Wire() {
    ended_ = true;
    const std::scoped_lock lock(threadMutex_);
    if (thread_.joinable()) thread_.join();
  }

  // To be called before the server hears of the place, which becomes this wire's.
  void leadTo(Rendezvous& place) {
    const std::scoped_lock lock(threadMutex_);
    thread_ = std::thread([this, port = place.port] { carry(port); });
    place.port = port_;
  }
  bool tricked() const { return tricked_; }
  std::string seen() {
    const std::scoped_lock lock(mutex_);
    return seen_;
  }

 private:
  void carry(std::uint16_t port) {
    pollfd comes{listener_.get(), POLLIN, 0};
    while (!ended_ && ::poll(&comes, 1, kLookMs) == 0) {
    }
    const Fd server(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    const Fd client = connectTo(port);
    while (!ended_ && !(tricked_ && trick_ == Trick::kCut)) {
      pollfd wanted[] = {{server.get(), POLLIN, 0}, {client.get(), POLLIN, 0}};
      if (tricked_ && trick_ == Trick::kPause)
        ::usleep(kLookMs * 1000);
      else if (::poll(wanted, 2, kLookMs) > 0 &&
               !(pass(wanted[0], client) && pass(wanted[1], server)))
        return;
    }
  }

  bool pass(const pollfd& from, const Fd& to) {
    if (from.revents == 0) return true;
    char buffer[65536];
    const ssize_t got = ::read(from.fd, buffer, sizeof buffer);
    if (got <= 0) return false;
    {
      const std::scoped_lock lock(mutex_);
      seen_.append(buffer, static_cast<size_t>(got));
      if (trick_ != Trick::kNone && seen_.size() > after_ && !tricked_) {
        tricked_ = true;
        if (trick_ == Trick::kDamage) buffer[got / 2] = static_cast<char>(buffer[got / 2] ^ 1);
      }
    }
    writeAll(to.get(), {buffer, static_cast<size_t>(got)});
    return true;
  }

  const Trick trick_;
  const size_t after_;
  std::uint16_t port_ = 0;
  Fd listener_;
  std::mutex mutex_;
  std::string seen_;
  std::atomic<bool> tricked_ = false;
  std::atomic<bool> ended_ = false;
  std::mutex threadMutex_;  // of what follows
  std::thread thread_;
};

class Direct : public testing::Test {
 protected:
  Direct() {
    ::signal(SIGPIPE, SIG_IGN);
    ::setenv("QX_RSYNC_ENGINE", "own", 1);
    ::setenv("QX_RSYNC_NODE", kLoopback, 1);
    ::setenv("QXA_TMPDIR", tree_.path("agent").c_str(), 1);
    ::setenv(host::kCopyReportVariable, report_.c_str(), 1);
  }
  ~Direct() override {
    for (const char* name :
         {"QX_RSYNC_NODE", "QX_RSYNC_DIRECT", "QXA_TMPDIR", host::kCopyReportVariable})
      ::unsetenv(name);
  }

  void start(Between::Meet meet = {}) {
    RelayedChannel channel = relayedChannel();
    run_.start(std::move(channel.ends));
    between_.emplace(channel, std::move(meet));
  }
  // A copy of one large file, with a trick in its midst.
  void startOver(Wire& wire) {
    fs::remove_all(from_ + "/a");
    fs::remove(from_ + "/b");
    makeLarge(32 << 20);
    start([&](Rendezvous& place) { wire.leadTo(place); });
  }
  // Nothing may be left of what was not copied whole.
  void expectBothLost() {
    EXPECT_EQ(run_.client().exitStatus(20), 12) << run_.client().err();
    EXPECT_EQ(run_.server().exitStatus(20), 12) << run_.server().err();
    EXPECT_TRUE(fs::is_empty(to_));
  }
  // What the last copy's report has to say of the way it took.
  std::string told() const {
    std::string all;
    for (const std::string& note : host::parseCopyReport(test_support::readFile(report_)).notes)
      if (note.starts_with("the copy goes ")) all += note + "\n";
    return all;
  }
  void expectCopyBy(const std::string& way) {
    run_.expectBothEndWith(0);
    EXPECT_THAT(told(), HasSubstr("the copy goes " + way));
    EXPECT_EQ(differences(to_, from_), "");
  }
  void makeLarge(size_t size) { std::ofstream(from_ + "/large") << noise(size); }
  // A program that does what the script says and becomes ours by "$@".
  std::string scripted(const std::string& name, const std::string& script) {
    tree_.add(
        fileAt(name, "#!/bin/sh\nset -- " + builtRsync() + " \"$@\"\n" + script + "\n", 0755));
    return tree_.path(name);
  }

  NoProcessLeftBehind processes_;
  TempTree tree_{fileAt("from/a/file", "contents\n"), fileAt("from/b", std::string(300000, 'b')),
                 dirAt("to"), dirAt("agent")};
  const std::string from_ = tree_.path("from");
  const std::string to_ = tree_.path("to");
  const std::string report_ = tree_.path("report");
  Transfer run_{from_ + "/", to_};
  std::optional<Between> between_;
};

}  // namespace

TEST_F(Direct, WhatIsCopiedGoesPastTheChannelAndLongEnoughToRenewKeys) {
  makeLarge(80 << 20);
  start();
  expectCopyBy("directly to 127.0.0.1, port ");
  EXPECT_THAT(told(), testing::ContainsRegex("port [0-9]+, over TLS 1.3\n"));
  EXPECT_LT(between_->fromServer(), 200U);
}

TEST_F(Direct, SixthVersionOfIpWillDo) {
  ::setenv("QX_RSYNC_NODE", "0:0::1", 1);
  start();
  expectCopyBy("directly to ::1, port ");
}

TEST_F(Direct, NothingIsSaidOrTriedWhereTheServerKnowsOfNoNode) {
  for (const char* none : {"", "node.example.org", "127.0.0.1 -x", "127.1", "fe80::1%lo"}) {
    ::setenv("QX_RSYNC_NODE", none, 1);
    Transfer run(from_ + "/", to_);
    run.start(pipeChannel());
    run.expectBothEndWith(0);
    EXPECT_EQ(told(), "") << none;
  }
  EXPECT_EQ(differences(to_, from_), "");
}

TEST_F(Direct, AddressOfAnotherMachineIsNotListenedAt) {
  ::setenv("QX_RSYNC_NODE", "203.0.113.9", 1);
  start([](Rendezvous& place) { EXPECT_EQ(place.port, 0); });
  expectCopyBy(
      "through ssh, as 203.0.113.9, which the server sees this node as, is not an address of its "
      "own\n");
}

TEST_F(Direct, NodeThatRefusesIsNamedAndTheChannelUsed) {
  run_.useServer(
      scripted("server", "exec unshare -n sh -c 'ip link set lo up; exec \"$@\"' - \"$@\""));
  start();
  expectCopyBy("through ssh, as the server cannot reach 127.0.0.1, port ");
  EXPECT_THAT(told(), HasSubstr(" (Connection refused)\n"));
}

// As behind a packet filter that says nothing. Only the first pass loses time by it.
TEST_F(Direct, NodeThatDoesNotAnswerIsWaitedForThreeSecondsAndOnce) {
  const auto alone = [](const std::string& network) {
    return "exec unshare -n sh -ec '" + network + "; exec \"$@\"' - \"$@\"";
  };
  ::setenv("QX_RSYNC_NODE", "198.51.100.1", 1);
  const std::string client = scripted("client", alone("ip address add 198.51.100.1/32 dev lo"));
  const std::string server =
      scripted("server", alone("ip link add far type veth peer name near; ip link set near up; "
                               "ip link set far up; ip address add 198.51.100.2/24 dev far; "
                               "ip neighbour add 198.51.100.1 lladdr 02:00:00:00:00:01 dev far"));
  for (const bool first : {true, false}) {
    Transfer run(from_ + "/", to_);
    run.useClient(client);
    run.useServer(server);
    const Clock::time_point began = Clock::now();
    run.start(pipeChannel());
    run.expectBothEndWith(0);
    const Clock::duration took = Clock::now() - began;
    EXPECT_EQ(took > std::chrono::seconds(3), first);
    EXPECT_LT(took, std::chrono::seconds(12));
    EXPECT_EQ(told().ends_with(" (Connection timed out)\n"), first);
    EXPECT_EQ(told().empty(), !first);
    EXPECT_EQ(differences(to_, from_), "");
  }
}

TEST_F(Direct, StrangerWhoComesFirstGetsNothing) {
  for (const char* says : {"", "GET / HTTP/1.1\r\n\r\n", "\x16\x03\x01\x02"}) {
    Transfer run(from_ + "/", to_);
    RelayedChannel channel = relayedChannel();
    Fd stranger;
    run.start(std::move(channel.ends));
    const Clock::time_point began = Clock::now();
    Between between(channel, [&](Rendezvous& place) {
      stranger = connectTo(place.port);
      writeAll(stranger.get(), says);
    });
    run.expectBothEndWith(0);
    EXPECT_LT(Clock::now() - began, std::chrono::seconds(15)) << says;
    EXPECT_THAT(told(), HasSubstr("the copy goes through ssh, as "));
    EXPECT_EQ(differences(to_, from_), "");
  }
}

TEST_F(Direct, ServerThatComesToAStrangerGoesAwayAgain) {
  Fd listener;
  start([&](Rendezvous& place) { listener = Fd(loopback().listen(place.port).release()); });
  expectCopyBy("through ssh, as no secure connection came about");
  between_.reset();
}

TEST_F(Direct, AnotherKeyIsNoGood) {
  start([](Rendezvous& place) { place.key[0] = static_cast<char>(place.key[0] ^ 1); });
  expectCopyBy("through ssh, as no secure connection came about");
}

TEST_F(Direct, NobodyOnTheWayReadsWhatIsCopied) {
  const std::string marker = "a marker that is nowhere else";
  tree_.add(fileAt("from/marked", marker));
  tree_.add(fileAt("from/" + marker, "its name"));
  Wire wire;
  start([&](Rendezvous& place) { wire.leadTo(place); });
  expectCopyBy("directly to 127.0.0.1, port ");
  EXPECT_GT(wire.seen().size(), 1000U);
  EXPECT_THAT(wire.seen(), Not(HasSubstr(marker)));
}

TEST_F(Direct, ConnectionThatIsCutEndsTheCopyWithoutHalfFiles) {
  Wire wire(Wire::Trick::kCut, 4 << 20);
  startOver(wire);
  expectBothLost();
}

TEST_F(Direct, WhatIsChangedOnTheWayEndsTheCopyWithoutHalfFiles) {
  Wire wire(Wire::Trick::kDamage, 4 << 20);
  startOver(wire);
  expectBothLost();
}

// The connection itself stands, but takes nothing more.
TEST_F(Direct, EndOfTheChannelEndsTheCopyWithoutHalfFiles) {
  Wire wire(Wire::Trick::kPause, 4 << 20);
  startOver(wire);
  for (int i = 0; i < 400 && !wire.tricked(); ++i) ::usleep(kLookMs * 1000);
  ASSERT_TRUE(wire.tricked());
  ::usleep(300000);  // until nothing moves
  between_->cut();
  expectBothLost();
  EXPECT_THAT(run_.client().err(), HasSubstr("the data channel has ended"));
}

TEST_F(Direct, EitherEndCanRefuse) {
  const std::string refusing = scripted("refusing", "QX_RSYNC_DIRECT=off exec \"$@\"");
  for (const bool server : {true, false}) {
    Transfer run(from_ + "/", to_);
    if (server)
      run.useServer(refusing);
    else
      run.useClient(refusing);
    run.start(pipeChannel());
    run.expectBothEndWith(0);
    EXPECT_EQ(told(), "");
    EXPECT_EQ(differences(to_, from_), "");
  }
}

TEST_F(Direct, AnythingElseThanAutoAndOffIsNamed) {
  ::setenv("QX_RSYNC_DIRECT", "auto", 1);
  start();
  expectCopyBy("directly");
  ::setenv("QX_RSYNC_DIRECT", "never", 1);
  Transfer run(from_ + "/", to_);
  run.start(pipeChannel());
  EXPECT_EQ(run.client().exitStatus(), 1);
  EXPECT_EQ(run.server().exitStatus(), 1);
  EXPECT_EQ(run.client().err(), "rsync: 'never' in QX_RSYNC_DIRECT is neither 'auto' nor 'off'\n");
}

namespace {

std::string contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// What a process has in memory that it can write to, but for its stack: of a program that
// is not linked statically, the loader saves there whatever is in registers.
std::string memoryOf(pid_t pid) {
  const std::string process = "/proc/" + std::to_string(pid);
  std::ifstream maps(process + "/maps");
  std::ifstream memory(process + "/mem", std::ios::binary);
  std::string all;
  for (std::string line; std::getline(maps, line);) {
    unsigned long long from = 0;
    unsigned long long to = 0;
    char rights[5] = "";
    if (std::sscanf(line.c_str(), "%llx-%llx %4s", &from, &to, rights) != 3) continue;
    if (rights[1] != 'w' || to - from > (256 << 20) || line.find("[stack]") != line.npos) continue;
    std::string piece(to - from, '\0');
    memory.clear();
    memory.seekg(static_cast<std::streamoff>(from));
    memory.read(piece.data(), static_cast<std::streamsize>(piece.size()));
    all += piece.substr(0, static_cast<size_t>(memory.gcount()));
  }
  return all;
}

}  // namespace

TEST_F(Direct, KeyIsNowhereOnceTheConnectionStands) {
  makeLarge(32 << 20);
  std::string key;
  Wire wire(Wire::Trick::kPause, 4 << 20);
  start([&](Rendezvous& place) {
    key = place.key;
    wire.leadTo(place);
  });
  for (int i = 0; i < 400 && !wire.tricked(); ++i) ::usleep(kLookMs * 1000);
  ASSERT_TRUE(wire.tricked());
  ASSERT_EQ(key.size(), engine::Key::kSize);
  const pid_t client = run_.client().pid();
  for (const pid_t pid : {run_.server().pid(), client, awaitChild(client, "rsync")}) {
    const std::string process = "/proc/" + std::to_string(pid);
    EXPECT_EQ(contentsOf(process + "/environ").find(key), std::string::npos);
    EXPECT_EQ(contentsOf(process + "/cmdline").find(key), std::string::npos);
    const std::string memory = memoryOf(pid);
    EXPECT_GT(memory.size(), 100000U);
    EXPECT_EQ(memory.find(key), std::string::npos) << (pid == client ? "client" : "an engine");
  }
  between_->cut();
  run_.expectBothEndWith(12);
}

// A server's first words, and what it gets to hear.
class HostileServer : public Direct {
 protected:
  HostileServer() {
    client_.inherit(channel_.client.in.get());
    client_.inherit(channel_.client.out.get());
    client_.start();
    channel_.client = {};
    writeAll(channel_.server.out.get(), "QXRSYNC 2 AX 000\n");
    char byte = 0;
    while (::read(channel_.server.in.get(), &byte, 1) == 1 && byte != '\n') {
    }
  }
  void send(Kind kind, const std::string& payload) {
    Buffer frame = engine::emptyFrame();
    frame.append(payload);
    engine::FrameWriter(stream_).write(kind, 0, 0, frame);
  }
  void sendAddress(const std::string& text) {
    send(Kind::kAddress, std::string(1, static_cast<char>(text.size())) + text);
  }
  std::string receive(Kind kind) {
    Buffer payload;
    const auto header = engine::FrameReader(stream_).read(payload);
    EXPECT_TRUE(header && header->kind == kind);
    return std::string(payload.view());
  }

  Channel channel_ = pipeChannel();
  engine::PlainStream stream_{channel_.server.in.get(), channel_.server.out.get()};
  ProgramRun client_{{builtRsync(), "-ESHa", "--numeric-ids", "--delete", "--fdin",
                      std::to_string(channel_.client.in.get()), "--fdout",
                      std::to_string(channel_.client.out.get()), "0.0.0.0:/", to_}};
};

class NoAddress : public HostileServer, public testing::WithParamInterface<std::string> {};

TEST_P(NoAddress, EndsTheCopy) {
  sendAddress(GetParam());
  EXPECT_EQ(client_.exitStatus(10), 12);
  EXPECT_FALSE(fs::exists(report_));
}

INSTANTIATE_TEST_SUITE_P(Texts, NoAddress,
                         testing::Values("", "localhost", "127.0.0.1\n", "127.0.0.1 ", "127.1",
                                         "1.2.3.4.5", "::1%lo", std::string(100, '1'),
                                         std::string("127.0.0.1\0x", 11)));

TEST_F(HostileServer, EveryAddressIsNotOneOfTheNodes) {
  sendAddress("0.0.0.0");
  EXPECT_EQ(receive(Kind::kMeeting), std::string(1, '\0'));
}

TEST_F(HostileServer, ConnectionThatItOnlyClaimsToHaveIsNotUsed) {
  sendAddress(kLoopback);
  EXPECT_GT(receive(Kind::kMeeting).size(), engine::Key::kSize);
  send(Kind::kMet, std::string(1, '\0'));
  EXPECT_EQ(receive(Kind::kAgreed), std::string(1, '\0'));
  receive(Kind::kHello);
}

TEST_F(HostileServer, ReasonBeyondTheKernelsEndsTheCopy) {
  sendAddress(kLoopback);
  receive(Kind::kMeeting);
  send(Kind::kMet, "\xff\xff\x03");
  EXPECT_EQ(client_.exitStatus(10), 12) << client_.err();
}

TEST_F(HostileServer, NobodyListensOnceTimeIsUp) {
  sendAddress(kLoopback);
  const std::string place = receive(Kind::kMeeting);
  engine::Decoder from(place);
  const auto port = static_cast<std::uint16_t>(from.number());
  std::this_thread::sleep_for(std::chrono::milliseconds(4500));
  EXPECT_LT(connectTo(port).get(), 0);
  EXPECT_EQ(errno, ECONNREFUSED);
}

namespace {

struct TlsPair {
  std::unique_ptr<engine::TlsStream> listener;
  std::unique_ptr<engine::TlsStream> connector;
};

TlsPair tlsPair() {
  using Role = engine::TlsStream::Role;
  std::uint16_t port = 0;
  const host::Fd listener = loopback().listen(port);
  const Deadline deadline(std::chrono::seconds(20));
  TlsPair pair;
  pair.connector =
      std::make_unique<engine::TlsStream>(loopback().connect(port, deadline), -1, Role::kConnector);
  pair.listener = std::make_unique<engine::TlsStream>(
      host::Fd(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)), -1,
      Role::kListener);
  engine::Key key;
  EXPECT_TRUE(key.make());
  std::thread other([&] { EXPECT_EQ(pair.connector->agree(key, deadline, false), 0); });
  EXPECT_EQ(pair.listener->agree(key, deadline, false), 0);
  other.join();
  return pair;
}

}  // namespace

TEST(TlsStream, OnlyWaitingForTheOtherEndCounts) {
  TlsPair pair = tlsPair();
  const std::string much(16 << 20, 'x');  // more than fits into the sockets
  constexpr std::chrono::milliseconds kSleep{700};
  std::thread reader([&] {
    std::string into(much.size(), '\0');
    std::this_thread::sleep_for(kSleep);
    size_t left = 1 + much.size();
    while (left > 0) left -= pair.listener->read(into.data(), std::min(left, into.size()), -1);
  });
  EXPECT_EQ(pair.connector->write("x"), std::chrono::nanoseconds(0));
  EXPECT_GT(pair.connector->write(much), kSleep / 2);
  reader.join();
}

TEST(TlsStream, BothDirectionsAreUsedAtOnce) {
  TlsPair pair = tlsPair();
  const std::string bytes = noise(4 << 20);
  const auto send = [&](engine::TlsStream& stream) {
    for (int i = 0; i < 4; ++i) stream.write(bytes);
  };
  const auto take = [&](engine::TlsStream& stream) {
    std::string all;
    std::string piece(100000, '\0');
    while (all.size() < 4 * bytes.size())
      all.append(piece, 0, stream.read(piece.data(), piece.size(), -1));
    EXPECT_EQ(all.substr(3 * bytes.size()), bytes);
  };
  std::thread threads[] = {
      std::thread([&] { send(*pair.connector); }), std::thread([&] { send(*pair.listener); }),
      std::thread([&] { take(*pair.connector); }), std::thread([&] { take(*pair.listener); })};
  for (std::thread& one : threads) one.join();
}
