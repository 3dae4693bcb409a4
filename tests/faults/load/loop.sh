#!/usr/bin/env bash
# small migrations, good ones and disturbed ones, for so many seconds of processor time
# number: 1800
# servers: alpha
#
# What counts is the time of qxmigrate and of the server's agent, and of all that these start.
# With a build of a sanitizer (--build build/asan, build/tsan) a report of it fails the test.
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"

# At the same place of the node and of the server.
reports=/tmp/sanitizer
root=$(lab root $server)
mkdir -p $reports "$root$reports"
# A program with the thread sanitizer would wait for a second when it ends.
export ASAN_OPTIONS=log_path=$reports/report
export TSAN_OPTIONS=log_path=$reports/report:exitcode=0:atexit_sleep_ms=0
# What a sanitizer's agent needs and the server lacks; what a release's does is there.
ldd "$(command -v qxmigrate)" | awk '$3 ~ /lib(asan|tsan|ubsan)/ { print $3 }' |
  xargs -r -I{} cp -L {} "$root/usr/lib/x86_64-linux-gnu/"

# The sanitizer whose library is in a list of such; empty when there is none.
sanitizer_in() { grep -o 'lib[at]san' | sort -u | paste -sd' ' || true; }
sanitizer=$(ldd "$(command -v qxmigrate)" | sanitizer_in)

# Small: most of the system is left out.
small=(--exclude '/usr/share/*' --exclude '/usr/lib/python3*' --exclude '/var/lib/dpkg/*'
  --exclude '/var/cache/*' --exclude '/usr/lib/modules/*' --exclude '/boot/*')

# of_the_agent COMMAND: what it prints on the server, $1 being the agent's folder in /proc.
of_the_agent() { on_server sh -c "$1" sh "/proc/$(lab agent pid $server)"; }

# What one has more of when something was left, as "NAME NUMBER". The agent on the server
# serves all of the migrations.
belongings() {
  # shellcheck disable=SC2016
  echo "descriptors-of-the-agent $(of_the_agent 'ls "$1/fd" | wc -l')"
  # shellcheck disable=SC2016
  echo "threads-of-the-agent $(of_the_agent 'ls "$1/task" | wc -l')"
  echo "processes-of-the-server $(lab processes $server | grep -vc track-changes)"
  echo "processes-of-the-node $(pgrep -a -f 'qxmigrate|rsync|qxctl' | grep -vc track-changes)"
  echo "mounts $(wc -l </proc/self/mounts)"
  echo "loop-devices $(losetup -a | grep -c /var/lib/qx || true)"
  echo "files-in-tmp $(find /tmp -mindepth 1 -not -path "$work*" -not -path "$reports*" | wc -l)"
  echo "files-in-run $(find /run -xdev -mindepth 1 | wc -l)"
  echo "areas $(find /var/lib/qx -mindepth 2 -maxdepth 2 -not -path '*/migrations/*' | wc -l)"
  echo "configurations $(find /etc/sysconfig/qx-scripts -maxdepth 1 -name '*.conf' | wc -l)"
}

# Processor time in hundredths of a second: what the shell's children have taken, and what
# the agent on the server and its children have.
of_children() { awk '{ sub(/.*\) /, ""); print $14 + $15 }' /proc/$$/stat; }
# shellcheck disable=SC2016
agent_time() { of_the_agent 'cat "$1/stat"' | awk '{ sub(/.*\) /, ""); print $12 + $13 + $14 + $15 }'; }

tidy_up() {
  qxctl destroy $ctid >/dev/null 2>&1 || true
  on_server /etc/init.d/nginx start >/dev/null
  on_server /etc/init.d/ticker start >/dev/null
}

# Good ones, and one that a signal ends somewhere, by turns.
one_round() {
  local began
  began=$(of_children)
  migrate "${small[@]}" >/dev/null
  node_time=$((node_time + $(of_children) - began))
  [ "$status" = 0 ] || { echo "it ends with $status: $(tail -n 1 "$out")" && return; }
  tidy_up
  began=$(of_children)
  begin_migration "${small[@]}"
  sleep "$((RANDOM % 5)).$((RANDOM % 10))"
  kill -TERM "$migration" 2>/dev/null || true
  end_migration >/dev/null
  node_time=$((node_time + $(of_children) - began))
  # 143: it had not begun.
  [[ $status = 0 || $status = 130 || ($status = 143 && ! -s $out) ]] ||
    echo "a cancelled one ends with $status: $(tail -n 1 "$out")"
  tidy_up
}

open_source
if [ -n "$sanitizer" ]; then
  # shellcheck disable=SC2016
  check_equal "the agent on the server runs with it" "$sanitizer" \
    "$(of_the_agent 'cat "$1/maps"' | sanitizer_in)"
  check_equal "so does rsync" "$sanitizer" "$(ldd /usr/local/share/qxlinmigrate/rsync | sanitizer_in)"
fi
node_time=0
one_round >/dev/null
belongings >"$work/before"
rounds=0
began=$SECONDS
node_time=0
agent_began=$(agent_time)
spent=0
while [ $spent -lt $((QX_NUMBER * 100)) ]; do
  one_round >>"$work/complaints"
  rounds=$((rounds + 1))
  spent=$((node_time + $(agent_time) - agent_began))
done
took=$((SECONDS - began))
# A session's last breath.
until_so 20 eval 'belongings >"$work/after"; cmp -s "$work/before" "$work/after"' || true
printf '        %s, %d rounds in %d s, %d s of processor time; the agent has %s KiB of memory\n' \
  "${sanitizer:-no sanitizer}" "$rounds" "$took" $((spent / 100)) \
  "$(of_the_agent 'sed -n "s/^VmRSS:[^0-9]*\([0-9]*\) kB/\1/p" "$1/status"')"
check "it went round" test "$rounds" -gt 0
check "the agent was looked at" grep -Eq '^descriptors-of-the-agent [1-9]' "$work/before"
check_no "every one ended as it should" cat "$work/complaints"
check_no "nothing is left of them" diff "$work/before" "$work/after"
# One waits for the pass that a cancelled migration would have made; its agent lives on here.
check "at most one process watches for changes" test "$(pgrep -c -f track-changes)" -le 1
check "journals are pruned" test "$(qxmigrate list | grep -c "^$ctid-")" -le 20
close_source
check_no "no sanitizer reports anything" eval 'cat $reports/* "$root$reports"/* 2>/dev/null'
