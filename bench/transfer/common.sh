# shellcheck shell=bash
# Shared by the transfer benchmarks; sourced. Results come back in variables.
# shellcheck disable=SC2034

# Makes a tree of real files: copies of a Debian root's /usr until there are
# enough. make_tree FROM TO BYTES FILES
make_tree() {
    local from=$1 to=$2 bytes=$3 files=$4 copy=0 have_bytes=0
    have_files=0
    while [ "$have_bytes" -lt "$bytes" ] || [ "$have_files" -lt "$files" ]; do
        copy=$((copy + 1))
        mkdir -p "$to/copy$copy"
        cp -a "$from/usr" "$to/copy$copy/"
        if [ "$copy" = 1 ]; then
            one_bytes=$(du -sb "$to/copy1" | cut -f1)
            one_files=$(find "$to/copy1" | wc -l)
        fi
        have_bytes=$((copy * one_bytes)) have_files=$((copy * one_files))
    done
    echo "tree: $have_files files, $((have_bytes / 1048576)) MiB"
}

# The container has as many entries below a folder as there are in the tree: a copy
# that leaves it out would be fast.
check_copied() {
    local copied
    copied=$(find "/var/lib/qx/private/$1/fs$2" | wc -l)
    [ "$copied" -ge "$have_files" ] || {
        echo "only $copied of $have_files files were copied" >&2
        return 1
    }
}

# Seconds of a command, with milliseconds, in SECONDS_TAKEN.
timed() {
    local began=$EPOCHREALTIME
    "$@" || return 1
    SECONDS_TAKEN=$(elapsed "$began" "$EPOCHREALTIME")
}

elapsed() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", b - a }'; }

# Runs qxmigrate with the arguments; the time from the start of the first copy to
# its end is in SECONDS_TAKEN, the peak memory of qxmigrate in KiB in PEAK_NODE.
timed_first_copy() {
    local line began="" ended="" log pid output
    log=$(mktemp)
    PEAK_NODE=0
    exec {output}< <(exec qxmigrate "$@" 2>&1)
    pid=$!
    while read -r line <&"$output"; do
        echo "$line" >>"$log"
        case $line in
        dumpQuota*) began=$EPOCHREALTIME ;;
        waitRSyncServer\ *) ended=$EPOCHREALTIME ;;
        esac
        PEAK_NODE=$(peak "$pid" "$PEAK_NODE")
        PEAK_SERVER=$(server_peak "${PEAK_SERVER:-0}")
    done
    exec {output}<&-
    if ! wait "$pid" || [ -z "$ended" ]; then
        cat "$log" >&2
        rm -f "$log"
        return 1
    fi
    rm -f "$log"
    SECONDS_TAKEN=$(elapsed "$began" "$ended")
}

# The larger of a process's peak memory in KiB and a number.
peak() {
    local now
    now=$(awk '/^VmHWM/ { print $2 }' "/proc/$1/status" 2>/dev/null)
    [ "${now:-0}" -gt "$2" ] && echo "$now" || echo "$2"
}

median() { printf '%s\n' "$@" | sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

# ratio NAME OURS PEER LIMIT
ratio() {
    awk -v name="$1" -v ours="$2" -v peer="$3" -v limit="$4" 'BEGIN {
        r = ours / peer
        printf "%s: %.2f times (ours %.2f s, peer %.2f s, at most %.2f wanted)%s\n",
            name, r, ours, peer, limit, r <= limit ? "" : "  TOO SLOW" }'
}
