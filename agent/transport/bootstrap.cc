#include "agent/transport/bootstrap.h"

#include <sstream>

namespace agent {

namespace {

// Runs a shell program, which must not hold a single quote, as root. Its first argument
// is the address that ssh comes from, as sudo takes it away from the environment. What
// sudo says is read by explainSshFailure, in English only.
std::string asRoot(const std::string& program) {
  return "/bin/sh -c 'n=${SSH_CONNECTION%% *}; "
         "if [ \"`id -u`\" = 0 ]; then exec /bin/sh -c \"$0\" sh \"$n\"; "
         "else LC_ALL=C; export LC_ALL; exec sudo -n -- /bin/sh -c \"$0\" sh \"$n\"; fi' '" +
         program + "'";
}

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
  for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
}

}  // namespace

std::string bootstrapCommand(uint64_t bytes, const std::string& sha256) {
  // Plain POSIX shell of any age. Each step that fails says so in one line.
  std::string program =
      "D=@DIR@; N=$1; export LC_ALL=C; umask 077; "
      "no() { echo \"QX error $*\"; exit 1; }; "
      "l=; command -v setsid >/dev/null 2>&1 && l=setsid; "
      // What a killed agent had stopped, in this run or in one before it. What signals
      // all that the login has started must not end this.
      "up() { if [ -f $1/@GUARD@ ]; then "
      "$l /bin/sh $1/@GUARD@ $1 </dev/null >/dev/null 2>&1; fi; }; "
      "live() { p=`head -n 1 $1/pid 2>/dev/null`; [ -n \"$p\" ] && [ -e /proc/$p ] && "
      "tr \"\\000\" \" \" </proc/$p/cmdline 2>/dev/null | grep -q qxagent.tmp; }; "
      "trap : HUP PIPE; "
      "u=`id -u`; [ \"$u\" = 0 ] || no root $u; "
      "m=`uname -m`; [ \"$m\" = x86_64 ] || no machine $m; "
      "k=`uname -r`; set -- `echo $k | tr -c 0-9 \" \"`; a=${1:-0}; b=${2:-0}; "
      "[ \"$a\" -gt 3 ] || { [ \"$a\" = 3 ] && [ \"$b\" -ge 2 ]; } || no kernel $k; "
      "for t in head tar gzip rm mkdir df; do "
      "command -v $t >/dev/null 2>&1 || no tool $t; done; "
      // One that has failed may be starting services again just now.
      "n=0; while live $D; do n=$((n + 1)); [ $n -le 15 ] || no live $p; sleep 1; done; "
      // A guard may be at its work, or have been killed there.
      "n=0; while live $D.left; do n=$((n + 1)); [ $n -le 600 ] || no live $p; sleep 1; done; "
      "for d in $D $D.left; do if [ -e $d ] || [ -h $d ]; then "
      "[ -h $d ] || { [ -O $d ] && up $d; }; rm -rf $d; fi; done; "
      "f=`df -P -k /var 2>/dev/null | tail -n 1 | { read x x x f x; echo $f; }`; "
      "[ \"${f:-65536}\" -ge 65536 ] || no space $f; "
      "e=`mkdir -m 0700 $D 2>&1` || no directory $e; "
      "echo $$ >$D/pid || { rm -rf $D; no directory cannot write there; }; "
      "gone() { rm -rf $D; no \"$@\"; }; "
      "printf \"#\\041/bin/sh\\nexit 0\\n\" >$D/try && chmod 700 $D/try && $D/try 2>/dev/null || "
      "gone noexec; "
      "echo \"QX send\"; "
      "head -c @BYTES@ >$D/bundle || gone unpack cannot write the bundle; "
      "if command -v sha256sum >/dev/null 2>&1; then s=`sha256sum <$D/bundle`; "
      "[ \"${s%% *}\" = @SHA256@ ] || gone digest; "
      "else s=`wc -c <$D/bundle`; [ $s -eq @BYTES@ ] || gone digest; fi; "
      "e=`gzip -dc <$D/bundle | tar xf - -C $D 2>&1` || gone unpack $e; "
      "chmod 0700 $D; "
      "rm -f $D/bundle $D/try; "
      // Services that are started inherit it.
      "umask 022; "
      // What ends this shell, and all that the login has started, must not end the guard.
      "g=\"$l /bin/sh $D/@GUARD@ $D $$\"; "
      "[ -f $D/@GUARD@ ] && { if [ -d /run/systemd/system ] && "
      "command -v systemd-run >/dev/null 2>&1; "
      "then systemd-run --quiet --scope $g || $g; else $g; fi; } "
      "</dev/null >/dev/null 2>&1 & "
      "echo \"QX run\"; "
      // Where the agent's rsync may reach the node, past ssh (share/rsync/direct_choice.h).
      "QXA_TMPDIR=$D QX_RSYNC_NODE=$N @LOADER@ --library-path @LIBRARIES@ @AGENT@ serve --stdio; "
      "r=$?; "
      // Not ignored, which the services would inherit. The guard is still there.
      "trap : HUP PIPE INT TERM; "
      "up $D && rm -rf $D; exit $r";
  replaceAll(program, "@DIR@", kBootstrapDir);
  replaceAll(program, "@BYTES@", std::to_string(bytes));
  replaceAll(program, "@SHA256@", sha256);
  replaceAll(program, "@LOADER@", kBundleLoader);
  replaceAll(program, "@LIBRARIES@", kBundleLibraries);
  replaceAll(program, "@AGENT@", kBundleAgent);
  replaceAll(program, "@GUARD@", kBundleGuard);
  return asRoot(program);
}

BootstrapLine readBootstrapLine(const std::string& line) {
  std::istringstream words(line);
  std::string tag, what;
  words >> tag >> what;
  BootstrapLine read;
  if (tag != "QX") return read;
  if (what == "send") read.kind = BootstrapLine::Kind::kSend;
  if (what == "run") read.kind = BootstrapLine::Kind::kRun;
  if (what == "error") {
    read.kind = BootstrapLine::Kind::kError;
    words >> read.word;
    std::getline(words >> std::ws, read.detail);
  }
  return read;
}

std::string channelCommand(const std::string& token) {
  return asRoot(std::string("echo \"") + kChannelBegins + "\"; QXA_TMPDIR=" + kBootstrapDir +
                " exec " + kBundleLoader + " --library-path " + kBundleLibraries + " " +
                kBundleAgent + " channel " + token);
}

}  // namespace agent
