// A sender that lies: whatever it says, nothing outside of the destination is
// touched or read, and the receiver ends with a clear message. A receiver that lies:
// whatever it asks for, the sender ends, soon and without much memory.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "share/engine/frame.h"
#include "share/engine/hello.h"
#include "share/engine/records.h"
#include "share_tests/transfer.h"
#include "support/temp_tree.h"

using engine::Buffer;
using engine::Entry;
using engine::Kind;
using engine::Record;
using test_support::dirAt;
using test_support::fileAt;
using test_support::readFile;
using test_support::TempTree;

namespace {

namespace fs = std::filesystem;

class HostileSender : public testing::Test {
 protected:
  HostileSender() {
    ::setenv("QX_RSYNC_ENGINE", "own", 1);
    ::signal(SIGPIPE, SIG_IGN);
    client_.inherit(channel_.client.in.get());
    client_.inherit(channel_.client.out.get());
    client_.start();
    channel_.client = {};
    say("QXRSYNC 2 AX 00\n");
    char byte = 0;
    while (::read(channel_.server.in.get(), &byte, 1) == 1 && byte != '\n') {
    }
    expectFrame(Kind::kHello);
    Buffer hello = engine::emptyFrame();
    engine::putHello(hello, engine::SenderHello{engine::Way::kEverything, 2});
    send(Kind::kHello, hello);
  }

  void say(const std::string& bytes) {
    if (::write(channel_.server.out.get(), bytes.data(), bytes.size()) < 0) return;
  }

  void send(Kind kind, Buffer& frame, unsigned lane = 0) {
    try {
      writer_.write(kind, static_cast<std::uint8_t>(lane), 0, frame);
    } catch (const std::exception&) {  // the client has gone, as it should
    }
  }

  // What the next frame is; its payload is in payload_.
  std::optional<engine::FrameHeader> receive() { return reader_.read(payload_); }
  void expectFrame(Kind kind) {
    const auto header = receive();
    ASSERT_TRUE(header);
    EXPECT_EQ(header->kind, kind);
  }

  // One frame with these records.
  void records(const std::function<void(Buffer&)>& put, unsigned lane = 0) {
    Buffer frame = engine::emptyFrame();
    put(frame);
    send(Kind::kRecords, frame, lane);
  }

  static void record(Buffer& to, Record kind) {
    to.append(std::string(1, static_cast<char>(kind)));
  }
  static void beginDirectory(Buffer& to, const std::string& path, unsigned flags = 0) {
    record(to, Record::kDirBegin);
    engine::putText(to, path);
    engine::putNumber(to, flags);
  }
  static void endDirectory(Buffer& to) {
    record(to, Record::kDirEnd);
    Entry entry;
    entry.mode = S_IFDIR | 0755;
    engine::putEntry(to, entry);
  }
  static void whole(Buffer& to, const std::string& name, const std::string& contents,
                    std::optional<engine::Digest> digest = {}) {
    record(to, Record::kWhole);
    Entry entry;
    entry.name = name;
    entry.mode = S_IFREG | 0644;
    entry.size = contents.size();
    engine::putEntry(to, entry);
    engine::putDigest(to, digest.value_or(engine::digestOf(contents)));
    engine::putFixed32(to, static_cast<std::uint32_t>(contents.size()));
    to.append(contents);
  }
  // A file of several records; good: it could be read to its end.
  static void inPieces(Buffer& to, Record kind, const Entry& entry, const std::string& contents,
                       bool good, std::optional<engine::Digest> digest = {}) {
    record(to, kind);
    engine::putEntry(to, entry);
    if (!contents.empty()) {
      record(to, Record::kData);
      engine::putNumber(to, 0);
      engine::putFixed32(to, static_cast<std::uint32_t>(contents.size()));
      to.append(contents);
    }
    record(to, Record::kFileEnd);
    engine::putNumber(to, good ? 1 : 0);
    engine::putNumber(to, entry.size);
    engine::putDigest(to, digest.value_or(engine::digestOf(contents)));
  }
  static Entry fileEntry(const std::string& name, std::uint64_t size) {
    Entry entry;
    entry.name = name;
    entry.mode = S_IFREG | 0644;
    entry.size = size;
    entry.seconds = kThen;
    return entry;
  }
  // A file of that name with that time, in d.
  void makeEarlier(const std::string& name, const std::string& contents) {
    fs::create_directory(at("d"));
    tree_.add(fileAt("to/d/" + name, contents));
    const timespec times[] = {{kThen, 0}, {kThen, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, at("d/" + name).c_str(), times, 0), 0);
  }
  time_t timeOf(const std::string& name) {
    struct stat status {};
    EXPECT_EQ(::stat(at(name).c_str(), &status), 0);
    return status.st_mtim.tv_sec;
  }
  size_t entriesIn(const std::string& directory) {
    return static_cast<size_t>(std::distance(fs::directory_iterator(at(directory)), {}));
  }
  static void symbolicLink(Buffer& to, const std::string& name, const std::string& target) {
    record(to, Record::kOther);
    Entry entry;
    entry.name = name;
    entry.mode = S_IFLNK | 0777;
    entry.target = target;
    engine::putEntry(to, entry);
  }
  void end() {
    Buffer frame = engine::emptyFrame();
    engine::putFarewell(frame, {0, ""});
    send(Kind::kEnd, frame);
  }

  void expectRefused(const std::string& because) {
    EXPECT_EQ(client_.exitStatus(10), 12) << client_.err();
    EXPECT_NE(client_.err().find(because), std::string::npos) << client_.err();
    expectOutsideUntouched();
  }
  void expectEnd(int status) {
    end();
    EXPECT_EQ(client_.exitStatus(10), status) << client_.err();
    expectOutsideUntouched();
  }
  void expectOutsideUntouched() {
    EXPECT_EQ(readFile(tree_.path("outside/secret")), "secret");
    struct stat status {};
    EXPECT_EQ(::stat(tree_.path("outside/secret").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    EXPECT_EQ(status.st_nlink, 1U);
    EXPECT_EQ(std::distance(fs::directory_iterator(tree_.path("outside")), {}), 1);
  }
  std::string at(const std::string& name) const { return tree_.path("to/" + name); }

  static constexpr time_t kThen = 1000000000;
  NoProcessLeftBehind processes_;
  TempTree tree_{dirAt("to"), fileAt("outside/secret", "secret", 0600)};
  Channel channel_ = pipeChannel();
  ProgramRun client_{{builtRsync(), "-ESHa", "--numeric-ids", "--delete", "--fdin",
                      std::to_string(channel_.client.in.get()), "--fdout",
                      std::to_string(channel_.client.out.get()), "0.0.0.0:/", tree_.path("to")}};
  engine::PlainStream stream_{channel_.server.in.get(), channel_.server.out.get()};
  engine::FrameWriter writer_{stream_};
  engine::FrameReader reader_{stream_};
  Buffer payload_;
};

class BadPath : public HostileSender, public testing::WithParamInterface<const char*> {};

}  // namespace

TEST_P(BadPath, DirectoryIsRefused) {
  records([](Buffer& to) { beginDirectory(to, GetParam()); });
  expectRefused("");
}

TEST_P(BadPath, LinkIsRefused) {
  records([](Buffer& to) {
    record(to, Record::kLink);
    engine::putText(to, "x");
    engine::putText(to, GetParam());
  });
  expectRefused("");
}

INSTANTIATE_TEST_SUITE_P(Paths, BadPath,
                         testing::Values("..", "/", "/etc", "a/../..", "a//b", "a/", "./a", "a/."));

TEST_F(HostileSender, NameWithASlashIsRefused) {
  records([](Buffer& to) {
    beginDirectory(to, "");
    whole(to, "../outside/new", "x");
  });
  expectRefused("'../outside/new' is not the name of a directory entry");
}

TEST_F(HostileSender, SymbolicLinkIsNotFollowedAsADirectory) {
  records([&](Buffer& to) {
    beginDirectory(to, "");
    symbolicLink(to, "way", tree_.path("outside"));
    endDirectory(to);
    beginDirectory(to, "way", engine::kComplete);  // would also delete what is there
    whole(to, "new", "x");
    endDirectory(to);
  });
  expectEnd(0);
  EXPECT_EQ(readFile(at("way/new")), "x");
  EXPECT_FALSE(fs::is_symlink(at("way")));
}

TEST_F(HostileSender, SymbolicLinkIsNotFollowedWhereItIsMadeBetweenRecords) {
  records([](Buffer& to) {
    beginDirectory(to, "way/in");
    whole(to, "first", "x");
  });
  // The other lane turns the directory above into a symbolic link.
  records(
      [&](Buffer& to) {
        beginDirectory(to, "");
        record(to, Record::kRemove);
        engine::putText(to, "way");
        symbolicLink(to, "way", tree_.path("outside"));
        endDirectory(to);
      },
      1);
  records([](Buffer& to) {
    whole(to, "secret", "y");
    endDirectory(to);
    beginDirectory(to, "way");
    whole(to, "secret", "y");
    endDirectory(to);
  });
  end();
  client_.exitStatus(10);
  expectOutsideUntouched();
}

TEST_F(HostileSender, UpdateDoesNotFollowASymbolicLink) {
  records([&](Buffer& to) {
    beginDirectory(to, "");
    symbolicLink(to, "way", tree_.path("outside/secret"));
    record(to, Record::kUpdate);
    Entry entry;
    entry.name = "way";
    entry.mode = S_IFREG | 0777;
    engine::putEntry(to, entry);
    record(to, Record::kPatch);
    entry.size = 100;
    engine::putEntry(to, entry);
    record(to, Record::kData);
    engine::putNumber(to, 0);
    engine::putFixed32(to, 3);
    to.append("xyz");
    record(to, Record::kFileEnd);
    engine::putNumber(to, 1);
    engine::putNumber(to, 100);
    engine::putDigest(to, engine::digestOf("xyz"));
    endDirectory(to);
  });
  expectFrame(Kind::kWant);  // as it has none of that name
  expectEnd(0);
}

TEST_F(HostileSender, HardLinkToOutsideIsNotMade) {
  records([&](Buffer& to) {
    beginDirectory(to, "");
    symbolicLink(to, "way", tree_.path("outside"));
    endDirectory(to);
    record(to, Record::kLink);
    engine::putText(to, "got");
    engine::putText(to, "way/secret");
  });
  expectEnd(23);
  EXPECT_FALSE(fs::exists(at("got")));
  EXPECT_NE(client_.err().find("'/got': cannot create the hard link"), std::string::npos);
}

TEST_F(HostileSender, FrameBeyondTheLimitTakesNoMemory) {
  say(std::string("\xff\xff\xff\xff\2\0\0\0", 8));
  expectRefused("a frame of 4294967295 bytes is too long");
}

TEST_F(HostileSender, CompressedFrameBeyondTheLimitTakesNoMemory) {
  // A zstd frame that says it holds 2^40 bytes.
  const std::string bomb("\x28\xb5\x2f\xfd\xe0\0\0\0\0\0\1\0\0\1\0\0", 16);
  std::string frame("\x10\0\0\0\2\0\1\0", 8);
  say(frame + bomb);
  expectRefused("a compressed frame does not state its length, or is too long");
}

TEST_F(HostileSender, LengthsBeyondTheFrameAreRefused) {
  records([](Buffer& to) {
    beginDirectory(to, "");
    record(to, Record::kWhole);
    Entry entry;
    entry.name = "x";
    entry.mode = S_IFREG | 0644;
    entry.size = INT64_MAX;
    engine::putEntry(to, entry);
    engine::putDigest(to, {});
    engine::putFixed32(to, UINT32_MAX);
  });
  expectRefused("a file in the stream is cut off");
}

TEST_F(HostileSender, DataOutsideOfTheirFileAreRefused) {
  records([](Buffer& to) {
    beginDirectory(to, "");
    record(to, Record::kFile);
    Entry entry;
    entry.name = "x";
    entry.mode = S_IFREG | 0644;
    entry.size = 10;
    engine::putEntry(to, entry);
    record(to, Record::kData);
    engine::putNumber(to, 9);
    engine::putFixed32(to, 2);
    to.append("ab");
  });
  expectRefused("data are beyond the end of their file");
  EXPECT_FALSE(fs::exists(at("x")));
}

TEST_F(HostileSender, RecordsOutOfTurnAreRefused) {
  records([](Buffer& to) { whole(to, "x", "x"); });
  expectRefused("a record is outside of a directory");
}

TEST_F(HostileSender, DamagedFileIsAskedForAgainAndThenAProblem) {
  const engine::Digest wrong{1, 2};
  const auto put = [&](Buffer& to) {
    beginDirectory(to, "d");
    whole(to, "x", "contents", wrong);
    endDirectory(to);
  };
  records(put);
  expectFrame(Kind::kWant);
  engine::Decoder from(payload_.view());
  EXPECT_EQ(engine::takePath(from), "d");
  EXPECT_EQ(from.number(), 1U);
  EXPECT_EQ(engine::takeName(from), "x");
  records(put);
  expectEnd(23);
  EXPECT_NE(client_.err().find("'/d/x': was damaged in transit twice"), std::string::npos);
  EXPECT_FALSE(fs::exists(at("d/x")));
}

TEST_F(HostileSender, FileThatCannotBeReadToItsEndLeavesWhatWasThere) {
  const std::string longest(255, 'n');
  for (const std::string& name : {std::string("x"), longest}) makeEarlier(name, "earlier");
  fs::create_hard_link(at("d/x"), at("d/same"));
  fs::create_symlink("x", at("d/link"));
  records([&](Buffer& to) {
    beginDirectory(to, "d");
    for (const std::string& name : {std::string("x"), longest, std::string("link")}) {
      inPieces(to, Record::kFile, fileEntry(name, 100), "abc", false);
      record(to, Record::kKeep);
      engine::putText(to, name);
    }
    inPieces(to, Record::kFile, fileEntry("new", 100), "abc", false);
    endDirectory(to);
  });
  expectEnd(0);  // the sender says what it could not read
  EXPECT_EQ(readFile(at("d/x")), "earlier");
  EXPECT_EQ(readFile(at("d/same")), "earlier");
  EXPECT_EQ(readFile(at("d/" + longest)), "earlier");
  EXPECT_TRUE(fs::is_symlink(at("d/link")));
  EXPECT_NE(timeOf("d/x"), kThen) << "it would pass for the source's";
  EXPECT_EQ(entriesIn("d"), 4U);
}

TEST_F(HostileSender, FileTakesThePlaceOfWhatWasThereWhenItIsWhole) {
  const std::string longest(255, 'n');
  for (const std::string& name : {std::string("x"), longest}) makeEarlier(name, "earlier");
  fs::create_hard_link(at("d/x"), at("d/same"));
  fs::create_directories(at("d/directory/below"));
  records([&](Buffer& to) {
    beginDirectory(to, "d");
    for (const std::string& name : {std::string("x"), longest, std::string("directory")})
      inPieces(to, Record::kFile, fileEntry(name, 3), "abc", true);
    endDirectory(to);
  });
  expectEnd(0);
  for (const std::string& name : {std::string("x"), longest, std::string("directory")}) {
    EXPECT_EQ(readFile(at("d/" + name)), "abc");
    EXPECT_EQ(timeOf("d/" + name), kThen);
  }
  EXPECT_EQ(readFile(at("d/same")), "earlier");
  EXPECT_EQ(entriesIn("d"), 4U);
}

TEST_F(HostileSender, PatchThatCannotBeReadToItsEndLeavesTheFileWithAnotherTime) {
  makeEarlier("x", "earlier");
  makeEarlier("untouched", "earlier");
  records([&](Buffer& to) {
    beginDirectory(to, "d");
    inPieces(to, Record::kPatch, fileEntry("x", 7), "abc", false);
    inPieces(to, Record::kPatch, fileEntry("untouched", 7), "", false);
    endDirectory(to);
  });
  expectEnd(0);
  EXPECT_EQ(readFile(at("d/x")), "abclier");
  EXPECT_NE(timeOf("d/x"), kThen);
  EXPECT_NE(timeOf("d/untouched"), kThen);
}

TEST_F(HostileSender, DamagedFileLeavesWhatWasThere) {
  makeEarlier("x", "earlier");
  const auto put = [&](Buffer& to) {
    beginDirectory(to, "d");
    inPieces(to, Record::kFile, fileEntry("x", 7), "abcdefg", true, engine::Digest{1, 2});
    endDirectory(to);
  };
  records(put);
  expectFrame(Kind::kWant);
  records(put);
  expectEnd(23);
  EXPECT_EQ(readFile(at("d/x")), "earlier");
  EXPECT_NE(timeOf("d/x"), kThen);
  EXPECT_EQ(entriesIn("d"), 1U);
}

TEST_F(HostileSender, MessageCannotReachTheTerminalRaw) {
  Buffer frame = engine::emptyFrame();
  engine::putText(frame, "evil \x1b[2J\n text");
  send(Kind::kMessage, frame);
  expectEnd(0);
  EXPECT_NE(client_.err().find("evil \\x1b[2J\\n text"), std::string::npos) << client_.err();
}

TEST_F(HostileSender, StreamThatEndsEarlyIsAnError) {
  channel_.server.out.close();
  expectRefused("closed it before the end");
}

namespace {

constexpr long kMuchMemory = 400 << 10;  // KiB; the sanitizers' own is in it

class HostileReceiver : public testing::Test {
 protected:
  HostileReceiver() {
    ::setenv("QX_RSYNC_ENGINE", "own", 1);
    ::signal(SIGPIPE, SIG_IGN);
    server_.setInput(channel_.server.in.get());
    server_.setOutput(channel_.server.out.get());
    server_.start();
    channel_.server = {};
    say("QXRSYNC 2 AX 00\n");
    char byte = 0;
    while (::read(channel_.client.in.get(), &byte, 1) == 1 && byte != '\n') {
    }
  }
  ~HostileReceiver() override {
    channel_.client.out.close();
    if (reading_.joinable()) reading_.join();
  }

  void greet(bool empty = true) {
    Buffer hello = engine::emptyFrame();
    engine::putHello(hello, engine::ReceiverHello{empty, "", {}, {}});
    send(Kind::kHello, hello);
  }
  // As the sender waits for who does not read.
  void readAll() {
    reading_ = std::thread([this] {
      try {
        while (reader_.read(payload_)) {
        }
      } catch (const std::exception&) {
      }
    });
  }

  // False: nobody listens any more.
  bool say(const std::string& bytes) {
    return ::write(channel_.client.out.get(), bytes.data(), bytes.size()) >= 0;
  }
  bool send(Kind kind, Buffer& frame) {
    try {
      writer_.write(kind, 0, 0, frame);
      return true;
    } catch (const std::exception&) {
      return false;
    }
  }
  bool send(Kind kind, const std::string& payload) {
    Buffer frame = engine::emptyFrame();
    frame.append(payload);
    return send(kind, frame);
  }
  bool want(const std::string& directory, const std::vector<std::string>& names) {
    Buffer frame = engine::emptyFrame();
    engine::putText(frame, directory);
    engine::putNumber(frame, names.size());
    for (const std::string& name : names) engine::putText(frame, name);
    return send(Kind::kWant, frame);
  }

  void expectRefused(const std::string& because) {
    if (!reading_.joinable()) readAll();
    EXPECT_EQ(server_.exitStatus(20), 12) << server_.err();
    EXPECT_NE(server_.err().find(because), std::string::npos) << server_.err();
    EXPECT_LE(mostMemory(), std::max(kMuchMemory, memoryBefore_));
  }

  // Of any process that this one has waited for, in KiB.
  static long mostMemory() {
    rusage used{};
    EXPECT_EQ(::getrusage(RUSAGE_CHILDREN, &used), 0);
    return used.ru_maxrss;
  }

  const long memoryBefore_ = mostMemory();

  NoProcessLeftBehind processes_;
  TempTree tree_{fileAt("from/file", "contents"), fileAt("from/d/other", "contents")};
  Channel channel_ = pipeChannel();
  ProgramRun server_{{builtRsync(), "--server", "--sender", "-ESHa", "--numeric-ids", "--delete",
                      ".", tree_.path("from") + "/"}};
  engine::PlainStream stream_{channel_.client.in.get(), channel_.client.out.get()};
  engine::FrameWriter writer_{stream_};
  engine::FrameReader reader_{stream_};
  Buffer payload_;
  std::thread reading_;
};

class NoGreeting : public HostileReceiver, public testing::WithParamInterface<std::string> {};
class NoDirectory : public HostileReceiver, public testing::WithParamInterface<std::string> {};
class NoEntry : public HostileReceiver, public testing::WithParamInterface<std::string> {};
class WrongDirection : public HostileReceiver, public testing::WithParamInterface<Kind> {};

}  // namespace

TEST_P(NoGreeting, EndsTheCopy) {
  send(Kind::kHello, GetParam());
  expectRefused("");
}

// Another version; no end; more than a greeting; patterns and a pattern beyond what there is.
INSTANTIATE_TEST_SUITE_P(Payloads, NoGreeting,
                         testing::Values("\2", std::string("\1\1\0", 3),
                                         std::string("\1\1\0\0\0\0\0", 7),
                                         std::string("\1\1\0\xff\xff\xff\xff\xf", 8),
                                         std::string("\1\1\0\1\xff\x1f", 6)));

TEST_F(HostileReceiver, FirstFrameIsAGreetingOrTheCopyEnds) {
  want("", {"file"});
  expectRefused("did not start with a greeting");
}

TEST_P(NoDirectory, EndsTheCopy) {
  greet();
  want(GetParam(), {"file"});
  expectRefused("");
}

INSTANTIATE_TEST_SUITE_P(Paths, NoDirectory,
                         testing::Values("..", "/", "/etc", "d/../..", "d//", "d/", "./d", "d/.",
                                         std::string("d\0/x", 4), std::string(70000, 'x')));

TEST_P(NoEntry, EndsTheCopy) {
  greet();
  want("", {GetParam()});
  expectRefused("");
}

INSTANTIATE_TEST_SUITE_P(Names, NoEntry,
                         testing::Values("", ".", "..", "d/other", "/etc/passwd",
                                         std::string("file\0", 5), std::string(256, 'x')));

TEST_P(WrongDirection, EndsTheCopy) {
  greet();
  send(GetParam(), std::string(1, '\1'));
  expectRefused("sent a frame out of turn");
}

INSTANTIATE_TEST_SUITE_P(Kinds, WrongDirection,
                         testing::Values(Kind::kHello, Kind::kRecords, Kind::kBarrier,
                                         Kind::kMessage, Kind::kKnown, Kind::kEnd, Kind::kChanges,
                                         Kind::kAddress, Kind::kMeeting, Kind::kMet,
                                         Kind::kAgreed));

TEST_F(HostileReceiver, SummaryBeforeTheEndEndsTheCopy) {
  greet();
  send(Kind::kSummary, std::string(1, '\0'));
  expectRefused("sent a frame out of turn");
}

TEST_F(HostileReceiver, BarrierThatWasNeverSentIsNotReached) {
  greet();
  send(Kind::kReached, "\x7f");
  expectRefused("a barrier that was never sent is said to be reached");
}

TEST_F(HostileReceiver, ThereIsNoSuchLane) {
  greet();
  say(std::string("\0\0\0\0\5\x10\0\0", 8));
  expectRefused("there is no lane 16");
}

TEST_F(HostileReceiver, FrameBeyondTheLimitTakesNoMemory) {
  greet();
  say(std::string("\xff\xff\xff\xff\5\0\0\0", 8));
  expectRefused("a frame of 4294967295 bytes is too long");
}

TEST_F(HostileReceiver, NumbersOfNamesThatThereCannotBeTakeNoMemory) {
  greet();
  send(Kind::kWant, std::string("\0\xff\xff\xff\xff\xff\xff\xff\x7f", 9));
  expectRefused("a number of names in the stream is too large");
}

TEST_F(HostileReceiver, LengthBeyondTheFrameIsRefused) {
  greet();
  send(Kind::kWant, std::string("\0\1\x7f"
                                "file",
                                7));
  expectRefused("a name in the stream is cut off");
}

TEST_F(HostileReceiver, ListOfNothingIsRefused) {
  greet();
  want("", {});
  expectRefused("the list of wanted files is empty");
}

// As when something has vanished since it was offered.
TEST_F(HostileReceiver, WhatIsNotThereIsAProblemOnly) {
  greet();
  for (bool ended = false; !ended;) {
    const auto header = reader_.read(payload_);
    ASSERT_TRUE(header);
    if (header->kind == Kind::kBarrier) {
      if (payload_.view() == "\1") want("no/such", {"file"}), want("", {"none"});
      send(Kind::kReached, std::string(payload_.view()));
    }
    ended = header->kind == Kind::kEnd;
  }
  send(Kind::kSummary, std::string(1, '\0'));
  readAll();
  EXPECT_EQ(server_.exitStatus(20), 23) << server_.err();
}

TEST_F(HostileReceiver, EndlessWantsEndTheCopy) {
  greet();
  readAll();
  const std::vector<std::string> names(1000, "file");
  while (want("", names)) {
  }
  expectRefused("wants more files than there are");
}

TEST_F(HostileReceiver, SameFileIsNotSentForEver) {
  greet();
  int asked = 0;
  while (const auto header = [this]() -> std::optional<engine::FrameHeader> {
    try {
      return reader_.read(payload_);
    } catch (const std::exception&) {
      return std::nullopt;
    }
  }()) {
    if (header->kind != Kind::kBarrier) continue;
    const std::string number(payload_.view());
    if (!want("d", {"other"}) || !send(Kind::kReached, number)) break;
    ASSERT_LT(++asked, 1000);
  }
  expectRefused("wants more files than there are");
}
