#!/bin/sh
# Outlives the agent on a server and whoever started it, in a session of its own.
# Usage: guard.sh FOLDER STARTER
#
# FOLDER is the agent's folder, and STARTER the process that has put it there, whose
# pid stands in FOLDER/pid: it cleans up when the agent has ended. When it cannot,
# because it is gone too, the guard starts the services that were stopped again, last
# one first (the order of the file), and removes the folder. An agent that has not
# heard of its host for minutes is ended, since it should have ended itself; so is a
# STARTER that is stopped then.
#
# Plain POSIX shell of any age.
set -u
folder=$1
starter=$2

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

# The folder is taken away at once: whoever comes next finds all of it or nothing.
clean_up() {
    left=$folder.left
    rm -rf "$left"
    mv "$folder" "$left" 2>/dev/null || exit 0
    # The next run may have come in between.
    is_ours "$left" || { mv "$left" "$folder"; exit 0; }
    if [ -f "$left/stopped-services" ]; then
        while read -r service; do
            "/etc/init.d/$service" start </dev/null >/dev/null 2>&1
        done <"$left/stopped-services"
    fi
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

cd / || exit 0
trap "" HUP INT PIPE
watch
exit 0
