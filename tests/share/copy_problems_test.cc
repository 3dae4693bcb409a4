#include "share/rsync/copy_problems.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using qxrsync::CopyProblems;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char kRoot[] = "/var/lib/qx/root/101";
constexpr char kLast[] =
    "rsync error: some files/attrs were not transferred (see previous errors) (code 23) at "
    "main.c(1865) [generator=3.2.7]\n";

std::vector<std::string> problemsIn(const std::string& errorOutput, int status = 23) {
  CopyProblems problems(kRoot);
  problems.feed(errorOutput + kLast);
  const host::CopyReport report = problems.report(status);
  std::vector<std::string> texts;
  for (const host::NotCopied& file : report.files) texts.push_back(textOf(file));
  EXPECT_EQ(report.count, texts.size());
  return texts;
}

}  // namespace

TEST(CopyProblems, FilesThatCannotBeReadAreOfTheServer) {
  EXPECT_THAT(
      problemsIn(
          "rsync: [sender] send_files failed to open \"/etc/x\": Permission denied (13)\n"
          "rsync: [sender] readlink_stat(\"/mnt/a b\") failed: Input/output error (5)\n"
          "rsync: [sender] opendir \"/srv/\"quoted\" dir\" failed: Input/output error (5)\n"),
      ElementsAre("/etc/x: cannot be read on the server: Permission denied",
                  "/mnt/a b: cannot be read on the server: Input/output error",
                  "/srv/\"quoted\" dir: cannot be read on the server: Input/output error"));
}

TEST(CopyProblems, FilesThatCannotBeWrittenAreToldAsTheServerHasThem) {
  EXPECT_THAT(
      problemsIn(
          "rsync: [receiver] rename \"/var/lib/qx/root/101/d/.f.mDvdLq\" -> \"d/f\": Operation not "
          "permitted (1)\n"
          "rsync: [receiver] mkstemp \"/var/lib/qx/root/101/d/.n.x.fk9Q27\" failed: File name too "
          "long (36)\n"
          "rsync: [generator] delete_file: unlink(d/k) failed: Operation not permitted (1)\n"
          "rsync: [receiver] rsync_xal_set: lsetxattr(\"/var/lib/qx/root/101/a\",\"user.x\") "
          "failed: "
          "No space left on device (28)\n"
          "rsync: [generator] symlink \"/var/lib/qx/root/101/l\" -> \"/etc\" failed: Operation not "
          "permitted (1)\n"
          "rsync: [generator] set_acl: sys_acl_set_file(b, ACL_TYPE_ACCESS): Operation not "
          "supported "
          "(95)\n"),
      ElementsAre("/d/f: cannot be written here: Operation not permitted",
                  "/d/n.x: cannot be written here: File name too long",
                  "/d/k: cannot be written here: Operation not permitted",
                  "/a: cannot be written here: No space left on device",
                  "/l: cannot be written here: Operation not permitted",
                  "/b: cannot be written here: Operation not supported"));
}

TEST(CopyProblems, SeveralLinesOfOneFileAreOneProblem) {
  EXPECT_THAT(
      problemsIn("rsync: [sender] read errors mapping \"/sub/x\": Input/output error (5)\n"
                 "WARNING: sub/x failed verification -- update discarded (will try again).\n"
                 "rsync: [sender] read errors mapping \"/sub/x\": Input/output error (5)\n"
                 "ERROR: sub/x failed verification -- update discarded.\n"),
      ElementsAre("/sub/x: cannot be read on the server: Input/output error"));
  // The server's lines and those of this end come in any order.
  EXPECT_THAT(problemsIn("ERROR: sub/x failed verification -- update discarded.\n"
                         "rsync: [sender] read errors mapping \"/sub/x\": Input/output error (5)\n"
                         "ERROR: y failed verification -- update discarded.\n"),
              ElementsAre("/sub/x: cannot be read on the server: Input/output error",
                          "/y: changed while it was copied"));
}

TEST(CopyProblems, WhatStaysAlthoughItIsGoneIsAProblem) {
  EXPECT_THAT(problemsIn("cannot delete non-empty directory: sub\n"),
              ElementsAre("/sub: is gone on the server, and cannot be removed here"));
  EXPECT_THAT(
      problemsIn("file has vanished: \"/a\"\nIO error encountered -- skipping file deletion\n"),
      ElementsAre(testing::HasSubstr("what is gone on the server was not removed here")));
}

TEST(CopyProblems, VanishedFilesAreNone) {
  EXPECT_THAT(problemsIn("file has vanished: \"/a\"\ndirectory has vanished: \"/b\"\n", 24),
              IsEmpty());
  // Attributes are asked for after the file has gone; the status is 23 then.
  EXPECT_THAT(problemsIn("rsync: [sender] get_xattr_names: llistxattr(\"/a\",1024) failed: No such "
                         "file or directory (2)\n"),
              IsEmpty());
  EXPECT_THAT(problemsIn("rsync: '/a' has vanished\n"), IsEmpty());
  // At this end nobody but rsync removes anything.
  EXPECT_THAT(problemsIn("rsync: [receiver] rename \"/var/lib/qx/root/101/.a.123456\" -> \"a\": No "
                         "such file or directory (2)\n"),
              ElementsAre("/a: cannot be written here: No such file or directory"));
  // Nor does all that is served vanish.
  EXPECT_THAT(problemsIn("rsync: [sender] change_dir \"/srv\" failed: No such file or directory "
                         "(2)\n"),
              ElementsAre("/srv: cannot be read on the server: No such file or directory"));
}

TEST(CopyProblems, TheEnginesWordsAreUnderstood) {
  EXPECT_THAT(problemsIn("rsync: [sender] '/d/x': cannot read it: Input/output error\n"
                         "rsync: [sender] '/d/y': cannot read its attributes: No data available\n"
                         "rsync: '/d/z': cannot write it: Operation not permitted\n"
                         "rsync: '/d/l': cannot create the hard link: Too many links\n"
                         "rsync: [sender] '/d/gone' has vanished\n"),
              ElementsAre("/d/x: cannot be read on the server: Input/output error",
                          "/d/y: cannot read its attributes: No data available, on the server",
                          "/d/z: cannot be written here: Operation not permitted",
                          "/d/l: cannot create the hard link: Too many links"));
}

TEST(CopyProblems, APartialCopyWithoutAWordIsNotTakenForComplete) {
  EXPECT_THAT(problemsIn(""), ElementsAre("rsync does not say what it has left out"));
  EXPECT_THAT(problemsIn("file has vanished: \"/a\"\n"),
              ElementsAre("rsync does not say what it has left out"));
  EXPECT_THAT(problemsIn("something else\n"), ElementsAre("something else"));
  EXPECT_THAT(problemsIn("rsync: [sender] new words\n"), ElementsAre("new words"));
}

TEST(CopyProblems, WithoutAPartialStatusThereIsNothingToTell) {
  EXPECT_THAT(problemsIn("rsync: [sender] opendir \"/a\" failed: Input/output error (5)\n", 0),
              IsEmpty());
}

// A server that speaks to stock rsync could say the same.
TEST(CopyProblems, NotesAreTheEnginesOnly) {
  for (const int status : {0, 23}) {
    CopyProblems engine("/");
    engine.acceptNotes();
    engine.feed("rsync note: so\n");
    const host::CopyReport report = engine.report(status);
    EXPECT_THAT(report.notes, ElementsAre("so"));
    EXPECT_EQ(report.count, status == 0 ? 0u : 1u);
  }
  CopyProblems stock("/");
  stock.feed("rsync note: so\n");
  const host::CopyReport report = stock.report(23);
  EXPECT_THAT(report.notes, IsEmpty());
  EXPECT_EQ(report.count, 1u);
}

TEST(CopyProblems, LinesComeInPiecesOfAnySize) {
  const std::string text =
      "rsync: [sender] opendir \"/a\" failed: Input/output error (5)\r\n"
      "rsync: [sender] opendir \"/b\" failed: Input/output error (5)";
  for (size_t size = 1; size < text.size(); ++size) {
    CopyProblems problems(std::string(kRoot) + "/");
    for (size_t at = 0; at < text.size(); at += size) problems.feed(text.substr(at, size));
    const host::CopyReport report = problems.report(23);
    ASSERT_EQ(report.count, 2u) << size;
    EXPECT_EQ(report.files[1].path, "/b");
  }
}

// The server says what it likes.
TEST(CopyProblems, AnyBytesAreTaken) {
  for (const char* text :
       {"rsync: [", "rsync: [sender] ", "rsync: [sender] : x (5)\n", "rsync: [sender] \": x (5)\n",
        "rsync: [sender] (: x (5)\n", "rsync: [sender] ) (: x ()\n", "rsync: '/\n", "rsync: '/'\n",
        "ERROR: \n", "cannot delete non-empty directory: \n", " has vanished: \n", "\n\n\r\n",
        "rsync: [receiver] mkstemp \"/.a\" failed: x (5)\n",
        "rsync: [receiver] rename \" -> (5)\n"}) {
    CopyProblems problems("/");
    problems.feed(text);
    EXPECT_GE(problems.report(23).count, 1u) << text;
  }
  CopyProblems problems("/");
  for (int i = 0; i < 1000; ++i) problems.feed(std::string(10000, 'x'));
  EXPECT_LE(problems.report(23).files.at(0).reason.size(), 1003u);
}
