# shellcheck shell=sh
# Adapts a system that was copied from a server to life in a
# container. Runs inside the copy, with its files as the root, before its first
# start: no service runs and no bus answers, so units are masked by links.
#
# Environment, all optional:
#   HOSTNAME      full host name
#   IP_ADDRESS    addresses, separated by blanks
#   NETIF         interfaces separated by ";", each of fields separated by ",":
#                 ifname=NAME and any number of ip=ADDRESS, ADDRESS/PREFIX, ip=dhcp
#   GATEWAY       default gateways, at most one of each family, separated by blanks
#   NAMESERVER, SEARCHDOMAIN   words separated by blanks
#
# Every edit is marked: commented lines begin with "#qx#", files written here
# begin with "# qx:", and /etc/qx-changes lists them all. The original of FILE is
# FILE.qx-orig; what was taken out of a directory is in its subdirectory .qx-orig.
# A second run changes nothing. The machine id and the ssh host keys stay as they
# are: the container is the same machine to everybody who knew the server.

# The awk programs are meant to be in single quotes.
# shellcheck disable=SC2016

set -eu
LC_ALL=C
export LC_ALL
umask 022

changes=/etc/qx-changes

note() {
    grep -qxF -e "$1" "$changes" 2>/dev/null || printf '%s\n' "$1" >>"$changes"
}

# keep FILE: keeps the original of a file or symbolic link, once.
keep() {
    if [ -e "$1" ] || [ -L "$1" ]; then
        [ -e "$1.qx-orig" ] || [ -L "$1.qx-orig" ] || cp -pP "$1" "$1.qx-orig"
    fi
}

# set_aside FILE: takes a file out of a directory of which everything is read.
set_aside() {
    aside=$(dirname "$1")/.qx-orig
    mkdir -p "$aside"
    mv "$1" "$aside/"
    note "$1: moved to $aside"
}

# replace FILE MODE: standard input becomes the content. An existing plain file
# keeps its owner and mode, a symbolic link is replaced.
replace() {
    new=$1.qx-new
    rm -f "$new"
    cat >"$new"
    if [ -f "$1" ] && [ ! -L "$1" ] && cmp -s "$new" "$1"; then
        rm "$new"
        return 0
    fi
    keep "$1"
    if [ -f "$1" ] && [ ! -L "$1" ]; then
        cp -p "$1" "$1.qx-mode"
        cat "$new" >"$1.qx-mode"
        rm "$new"
        mv "$1.qx-mode" "$1"
    else
        chmod "$2" "$new"
        mv "$new" "$1"
    fi
    note "$1: rewritten"
}

# edit FILE PROGRAM: replaces an existing file by what awk makes of it.
edit() {
    [ -f "$1" ] || return 0
    awk "$2" "$1" >"$1.qx-edit"
    replace "$1" 0644 <"$1.qx-edit"
    rm -f "$1.qx-edit"
}

# has_unit UNIT: of an instance NAME@X.service the template counts.
has_unit() {
    template=$1
    case $1 in *@*.*) template=${1%%@*}@.${1##*.} ;; esac
    for dir in /etc /lib /usr/lib; do
        [ ! -f "$dir/systemd/system/$template" ] || return 0
    done
    return 1
}

# mask UNIT...: as systemctl mask does it.
mask() {
    for unit in "$@"; do
        has_unit "$unit" || continue
        link=/etc/systemd/system/$unit
        [ "$(readlink "$link" 2>/dev/null)" = /dev/null ] && continue
        mkdir -p /etc/systemd/system
        if [ -e "$link" ] || [ -L "$link" ]; then mv "$link" "$link.qx-orig"; fi
        ln -s /dev/null "$link"
        note "$link: masked"
    done
}

# disable SCRIPT...: init scripts no longer start at boot.
disable() {
    for name in "$@"; do
        for start in /etc/rc[S2345].d/S[0-9][0-9]"$name"; do
            [ -L "$start" ] || continue
            mv "$start" "${start%/*}/K01$name"
            note "$start: renamed to K01$name"
        done
    done
}

# enable_unit UNIT: it starts with the system, as systemctl enable has it.
enable_unit() {
    link=/etc/systemd/system/multi-user.target.wants/$1
    for unit in "/lib/systemd/system/$1" "/usr/lib/systemd/system/$1"; do
        [ -f "$unit" ] || continue
        if [ ! -L "$link" ]; then
            mkdir -p "${link%/*}"
            ln -s "$unit" "$link"
            note "$link: enabled"
        fi
        return 0
    done
}

# What the environment says, whoever adapts.

# Some shells set HOSTNAME by themselves; only the environment's counts.
full_name=$(env | sed -n 's/^HOSTNAME=//p')
all_addresses=${IP_ADDRESS:-}
NETIF=${NETIF:-}
if [ -z "$NETIF" ] && [ -n "$all_addresses" ]; then
    NETIF=ifname=eth0
    for address in $all_addresses; do NETIF="$NETIF,ip=$address"; done
elif [ -z "$all_addresses" ]; then
    all_addresses=$(printf '%s\n' "$NETIF" | tr ';' ',' | tr ',' '\n' | sed -n 's/^ip=//p' | tr '\n' ' ')
fi
