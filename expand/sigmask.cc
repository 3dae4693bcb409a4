#include "expand/sigmask.h"

#include <cstddef>

namespace Expand {
namespace {

const char* const kNames[] = {
    "NONE",      "SIGHUP",  "SIGINT",    "SIGQUIT", "SIGILL",   "SIGTRAP", "SIGABRT", "SIGBUS",
    "SIGFPE",    "SIGKILL", "SIGUSR1",   "SIGSEGV", "SIGUSR2",  "SIGPIPE", "SIGALRM", "SIGTERM",
    "SIGSTKFLT", "SIGCHLD", "SIGCONT",   "SIGSTOP", "SIGTSTP",  "SIGTTIN", "SIGTTOU", "SIGURG",
    "SIGXCPU",   "SIGXFSZ", "SIGVTALRM", "SIGPROF", "SIGWINCH", "SIGIO",   "SIGPWR"};

sigset_t currentMask() {
  sigset_t mask;
  sigemptyset(&mask);
  sigprocmask(SIG_BLOCK, nullptr, &mask);
  return mask;
}

std::string namesIn(const sigset_t& signals) {
  std::string names;
  for (std::size_t number = 0; number < sizeof(kNames) / sizeof(kNames[0]); ++number) {
    if (sigismember(&signals, static_cast<int>(number)) != 1) continue;
    names += ' ';
    names += kNames[number];
  }
  return names;
}

}  // namespace

SigMask::SigMask(const std::vector<int>& signals) : saved_(currentMask()) {
  sigemptyset(&signals_);
  for (const int signal : signals) sigaddset(&signals_, signal);
}

SigMask::SigMask(const sigset_t& signals) : signals_(signals), saved_(currentMask()) {}

SigMask::~SigMask() { revert(); }

void SigMask::set(int how) {
  while (sigprocmask(how, &signals_, nullptr) == -1) {
  }
  changed_ = true;
}

void SigMask::block() { set(SIG_BLOCK); }

void SigMask::unblock() { set(SIG_UNBLOCK); }

void SigMask::revert() {
  if (!changed_) return;
  while (sigprocmask(SIG_SETMASK, &saved_, nullptr) == -1) {
  }
}

// The misspelt word is part of a text that others look for: it stays.
std::string SigMask::dump() const {
  std::string text = "Dumping currently blocked signals:" + namesIn(currentMask()) + "\n";
  if (changed_) {
    text += "Upon destruction signals mask wil be reverted to:" + namesIn(saved_) + "\n";
  } else {
    text += "Signals mask will not be reverted upon destruction.\n";
  }
  return text;
}

}  // namespace Expand
