// A machine of the test's own: runs a piece of test code in a child process whose
// root directory is a small tree on a tmpfs, so that code with literal absolute
// paths meets the test's files and fake tools. Nothing on the real machine is
// touched, and everything is gone when the child ends.
//
//   ScratchHost host;
//   host.file("/etc/mtab", "/dev/sda1 / ext3 rw,usrquota 0 0\n");
//   host.tool("/usr/sbin/qxctl", {.status = 1, .err = "no such container\n"});
//   host.run([&] {
//     EXPECT_EQ(codeUnderTest(), -1);
//     EXPECT_THAT(host.calls(), testing::ElementsAre("/usr/sbin/qxctl\tstop\t101"));
//   });
//
// What is there besides: the machine's /usr (an overlay, so writes stay in the
// scratch host; links, only partly writable, when the test is not run by root),
// /bin, /lib and so on; /dev with null, zero, full, random,
// urandom, tty; a /proc of the child's own pid namespace; a minimal /etc
// (passwd, group, hosts); empty /tmp, /var, /run, /root, /home, /mnt; the source
// tree (read-only) and the build tree at their own paths. The working directory
// is "/", PATH the usual one, HOME=/root, LC_ALL=C. The code runs as root, of a
// user namespace when the test is not run by root.
//
// EXPECT and ASSERT work in the child as usual (ASSERT ends the lambda) and fail
// the test that called run; so do exceptions, crashes and leaks. Values captured
// by reference do not come back: check everything inside the lambda. On a machine
// without namespaces the test is skipped with a message.
#ifndef QX_TESTS_SUPPORT_SCRATCH_HOST_H
#define QX_TESTS_SUPPORT_SCRATCH_HOST_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "support/child_test.h"
#include "support/fake_tool.h"
#include "support/temp_tree.h"

namespace test_support {

class ScratchHost {
 public:
  // Each adds to what run() sets up; paths are absolute and parent directories
  // are made. A file in /proc must exist there and covers the real one.
  ScratchHost& file(std::string path, std::string contents, mode_t mode = 0644);
  ScratchHost& dir(std::string path, mode_t mode = 0755);
  ScratchHost& symlink(std::string path, std::string target);

  // A fake program that logs each call (see calls) and does what FakeTool says:
  // {.status = 1, .out = "...", .err = "...", .script = "shell text with \"$@\""}.
  ScratchHost& tool(std::string path, FakeTool tool = {});

  // Runs `body` on a fresh host; may be called again.
  void run(const std::function<void()>& body) const;

  // The same, where `body` must end by abort() with `text` on standard error, as
  // by a failed assertion.
  void runExpectingAbort(const std::function<void()>& body, const std::string& text) const;

  // Only inside the body: the calls of fake tools so far, in order, each as
  // "program\targument\targument", where the program is the path given to tool()
  // and a tab, newline or backslash inside a word is written \t, \n or \\.
  std::vector<std::string> calls() const;

  // Only inside the body: the same as words, unescaped.
  std::vector<std::vector<std::string>> callWords() const;

  // Only inside the body: forgets the calls so far.
  void clearCalls() const;

 private:
  void runTest(ChildTest test) const;

  std::vector<TreeEntry> entries_;
};

}  // namespace test_support

#endif  // QX_TESTS_SUPPORT_SCRATCH_HOST_H
