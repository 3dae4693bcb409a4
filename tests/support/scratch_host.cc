#include "support/scratch_host.h"

#include <cstdlib>
#include <utility>

#include "support/scratch_root.h"

namespace test_support {

ScratchHost& ScratchHost::file(std::string path, std::string contents, mode_t mode) {
  entries_.push_back(fileAt(std::move(path), std::move(contents), mode));
  return *this;
}

ScratchHost& ScratchHost::dir(std::string path, mode_t mode) {
  entries_.push_back(dirAt(std::move(path), mode));
  return *this;
}

ScratchHost& ScratchHost::symlink(std::string path, std::string target) {
  entries_.push_back(linkAt(std::move(path), std::move(target)));
  return *this;
}

ScratchHost& ScratchHost::tool(std::string path, FakeTool tool) {
  std::string script = fakeToolScript(path, tool, CALL_LOG);
  return file(std::move(path), std::move(script), 0755);
}

void ScratchHost::runTest(ChildTest test) const {
  const TempTree mountPoint;
  test.enter = [&] {
    enterNamespaces();
    enterScratchRoot(mountPoint.root(), entries_);
    setenv("PATH", "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
    setenv("HOME", "/root", 1);
    setenv("LC_ALL", "C", 1);
    unsetenv("TMPDIR");
  };
  runChildTest(test);
}

void ScratchHost::run(const std::function<void()>& body) const {
  runTest({.enter = {}, .body = body, .expectAbort = false, .abortText = ""});
}

void ScratchHost::runExpectingAbort(const std::function<void()>& body,
                                    const std::string& text) const {
  runTest({.enter = {}, .body = body, .expectAbort = true, .abortText = text});
}

std::vector<std::vector<std::string>> ScratchHost::callWords() const {
  return parseCallLog(readFile(CALL_LOG));
}

std::vector<std::string> ScratchHost::calls() const {
  std::vector<std::string> lines;
  for (const std::vector<std::string>& words : callWords()) lines.push_back(callLine(words));
  return lines;
}

void ScratchHost::clearCalls() const { makeEntry("/", {TreeEntry::FILE, CALL_LOG, "", 0666}); }

}  // namespace test_support
