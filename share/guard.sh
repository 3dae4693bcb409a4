#!/bin/sh
# Starts the services again that an agent had stopped and cannot answer for any more.
# Usage: guard.sh FOLDER STARTER
#        guard.sh FOLDER
#
# FOLDER is the agent's folder, and STARTER the process that has put it there, whose
# pid stands in FOLDER/pid: it cleans up when the agent has ended. The guard outlives
# both, in a session of its own. When STARTER cannot clean up, because it is gone too,
# the guard starts the services that were stopped again and removes the folder. An
# agent that has not heard of its host for minutes is ended, since it should have
# ended itself; so is a STARTER that is stopped then.
#
# Without STARTER: starts them at once, and leaves the folder to the caller.
#
# FOLDER/stopped-services holds the id of the boot in which they were stopped, and then
# their names, one a line, in the order in which they are to be started.
#
# Plain POSIX shell of any age.
set -u
folder=$1
starter=${2-}

# Field 22 of /proc/PID/stat; the command name before it may have blanks in it.
started() {
    s=$(cat "/proc/$1/stat" 2>/dev/null) || return 1
    set -- ${s##*)}
    shift 19
    echo "$1"
}

is_stopped() {
    s=$(cat "/proc/$1/stat" 2>/dev/null) || return 1
    set -- ${s##*)}
    [ "$1" = T ]
}

is_ours() { [ "$(head -n 1 "$1/pid" 2>/dev/null)" = "$starter" ]; }

# The pids of what runs from the folder with such arguments. Anybody can give a process
# such arguments, but only root can run what lies in the folder.
programs() {
    for c in /proc/[0-9]*/cmdline; do
        tr "\000" " " <"$c" 2>/dev/null | grep -q "^$folder/.*$1" || continue
        p=${c%/cmdline}
        e=$(ls -l "$p/exe" 2>/dev/null)
        case ${e#* -> } in "$folder"/*) echo "${p#/proc/}" ;; esac
    done
}

# Whether the agent has not heard of its host for longer than any heartbeat. It writes
# down when it did, in seconds since the boot; one that never did has not begun.
is_silent() {
    heard=$(cat "$folder/heard" 2>/dev/null)
    read -r now _ </proc/uptime
    case $heard in "" | *[!0-9]*) return 1 ;; esac
    [ $((${now%%.*} - heard)) -gt 120 ]
}

# A script that hangs must not keep the other services stopped.
limit=
! timeout 5 true 2>/dev/null || limit="timeout 120"
run() { $limit "/etc/init.d/$1" "$2" </dev/null >/dev/null 2>&1; }

# Whether the script of a service is still stopping it. Only root's count: anybody can
# give a process such arguments.
is_stopping() {
    for c in $(grep -l /etc/init.d/ /proc/[0-9]*/cmdline 2>/dev/null); do
        [ -O "$c" ] || continue
        case $(tr "\000" " " <"$c" 2>/dev/null) in *"/etc/init.d/$1 stop ") return 0 ;; esac
    done
    return 1
}

# A killed agent's scripts go on. To be started while it is being stopped does nothing to
# many a service, which is down after that. One that never ends is waited for for minutes.
start_when_stopped() {
    while [ "$patience" -gt 0 ] && is_stopping "$1"; do
        sleep 1
        patience=$((patience - 1))
    done
    run "$1" start
}

# As far as its script can tell: many do not know the question, and answer anything.
is_down() {
    grep -q "status[\"' ]*[|)]" "/etc/init.d/$1" || return 1
    run "$1" status
    case $? in 1 | 2 | 3) return 0 ;; *) return 1 ;; esac
}

# After a boot it is not for us to say what runs: the boot has started it, or somebody
# has stopped it on purpose.
start_services() {
    list=$1/stopped-services
    boot=$(head -n 1 "$list" 2>/dev/null) || return 0
    [ "$boot" = "$(cat /proc/sys/kernel/random/boot_id 2>/dev/null)" ] || return 0
    patience=300
    sed 1d "$list" | while read -r service; do start_when_stopped "$service"; done
    # What was only told to stop, by a script that has ended, is down by now.
    sleep 5
    sed 1d "$list" | while read -r service; do
        ! is_down "$service" || run "$service" start
    done
}

# The folder is taken away at once: whoever comes next finds all of it or nothing, and
# the pid of whoever is at work on it.
clean_up() {
    left=$folder.left
    # The starter may have cleaned up, and the folder beside be another's.
    is_ours "$folder" || exit 0
    rm -rf "$left"
    mv "$folder" "$left" 2>/dev/null || exit 0
    # The next run may have come in between.
    is_ours "$left" || { mv "$left" "$folder"; exit 0; }
    echo $$ >"$left/pid"
    start_services "$left"
    rm -rf "$left"
    exit 0
}

watch() {
    birth=$(started "$starter") || birth=gone
    while is_ours "$folder"; do
        sleep 2
        if is_silent; then
            for p in $(programs ""); do kill -KILL "$p"; done
            # One that somebody has stopped would clean up at the wrong time, if ever.
            ! is_stopped "$starter" || kill -KILL "$starter"
        fi
        [ "$(started "$starter")" != "$birth" ] || continue
        [ -n "$(programs "qxagent serve --stdio")" ] || clean_up
    done
}

# What the services inherit: signals that are not ignored, and files as after a boot.
trap : HUP INT PIPE
umask 022
cd / || exit 1
if [ -n "$starter" ]; then
    watch
else
    trap : TERM
    start_services "$folder"
fi
exit 0
